// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "geometry.h"
#include "motion.h"

namespace orva::sim {

struct Ray {
  Vec3 origin;
  Vec3 direction;     ///< unit vector
  double time = 0.0;  ///< seconds since the start; things move
};

struct Hit {
  double distance = 0.0;      ///< metres
  double cosine = 0.0;        ///< of the angle between the ray and the surface's normal, 0 to 1
  double reflectivity = 0.0;  ///< 0 to 1, retro-reflectors above 1
};

struct Material {
  double reflectivity = 0.5;
  /// Optional: a factor on the reflectivity by place on the surface.
  double (*texture)(const Vec3& point) = nullptr;

  double At(const Vec3& point) const {
    return texture != nullptr ? reflectivity * texture(point) : reflectivity;
  }
};

/// The space around an axis in which the beams of one packet lie.
struct Cone {
  Vec3 apex;
  Vec3 axis;                ///< unit vector
  double half_angle = 0.0;  ///< radians
};

/// Bounds of a primitive. Most rays miss most things, and a sphere is missed fastest.
struct Sphere {
  Vec3 centre;
  double radius = std::numeric_limits<double>::infinity();

  bool MissedBy(const Ray& ray) const {
    const Vec3 to_centre = centre - ray.origin;
    const double along = Dot(to_centre, ray.direction);
    return along < -radius || Dot(to_centre, to_centre) - along * along > radius * radius;
  }

  bool Outside(const Cone& cone) const {
    const Vec3 to_centre = centre - cone.apex;
    const double distance = std::sqrt(Dot(to_centre, to_centre));
    if (distance <= radius) return false;
    const double cosine = std::clamp(Dot(to_centre, cone.axis) / distance, -1.0, 1.0);
    return std::acos(cosine) > cone.half_angle + std::asin(radius / distance);
  }
};

class Primitive {
 public:
  virtual ~Primitive() = default;
  /// The nearest hit in front of the ray's origin.
  virtual std::optional<Hit> Intersect(const Ray& ray) const = 0;
  virtual Sphere Bounds() const = 0;
};

/// The plane z = 0.
class Ground : public Primitive {
 public:
  explicit Ground(Material material) : material_(material) {}
  std::optional<Hit> Intersect(const Ray& ray) const override;
  Sphere Bounds() const override { return {}; }

 private:
  Material material_;
};

/// Box along the axes. Seen from inside, its walls are hit.
class Box : public Primitive {
 public:
  Box(const Vec3& low, const Vec3& high, Material material) : low_(low), high_(high), material_(material) {}
  std::optional<Hit> Intersect(const Ray& ray) const override;
  Sphere Bounds() const override;

 private:
  Vec3 low_;
  Vec3 high_;
  Material material_;
};

/// Upright cylinder without lids.
class Cylinder : public Primitive {
 public:
  /// `foot` is the centre of its lower end.
  Cylinder(const Vec3& foot, double radius, double height, Material material)
      : foot_(foot), radius_(radius), height_(height), material_(material) {}
  std::optional<Hit> Intersect(const Ray& ray) const override;
  Sphere Bounds() const override;

 private:
  Vec3 foot_;
  double radius_;
  double height_;
  Material material_;
};

class Ellipsoid : public Primitive {
 public:
  Ellipsoid(const Vec3& centre, const Vec3& radii, Material material)
      : centre_(centre), radii_(radii), material_(material) {}
  std::optional<Hit> Intersect(const Ray& ray) const override;
  Sphere Bounds() const override;

 private:
  Vec3 centre_;
  Vec3 radii_;
  Material material_;
};

/// Several primitives that are seen, and may move, together.
class Group : public Primitive {
 public:
  /// Where the group's origin is at a time in seconds.
  using Path = std::function<Vec3(double time)>;

  /// `wander`: metres, how far the path leads away from the place that the group is put at.
  explicit Group(Path path = nullptr, double wander = std::numeric_limits<double>::infinity())
      : path_(std::move(path)), wander_(wander) {}

  template <typename P, typename... Args>
  void Add(Args&&... args) {
    Add(std::make_unique<P>(std::forward<Args>(args)...));
  }
  void Add(std::unique_ptr<Primitive> part);

  std::optional<Hit> Intersect(const Ray& ray) const override;
  Sphere Bounds() const override { return {{}, extent_ + wander_}; }

  struct Part {
    Sphere bounds;
    std::unique_ptr<Primitive> primitive;
  };

  /// Of a group that does not move: the parts that rays within the cone can meet.
  std::vector<const Part*> PartsWithin(const Cone& cone) const;

 private:
  Path path_;
  double wander_;
  double extent_ = 0.0;  ///< metres, the parts' greatest distance from the group's origin
  std::vector<std::unique_ptr<const Part>> parts_;
};

/// The nearest hit among some parts.
template <typename Parts>
std::optional<Hit> NearestHit(const Parts& parts, const Ray& ray) {
  std::optional<Hit> nearest;
  for (const auto& part : parts) {
    if (part->bounds.MissedBy(ray)) continue;
    const auto hit = part->primitive->Intersect(ray);
    if (hit && (!nearest || hit->distance < nearest->distance)) nearest = hit;
  }
  return nearest;
}

/// A world and the way that the sensor takes through it.
struct Scene {
  Group world;
  Motion motion;
};

/// "street": a vehicle drives between houses, parked cars and trees; a car comes towards it, a person walks.
/// "room": the sensor stands still in a closed room of 12 x 9 x 4 m, so that every beam returns.
/// "wall": the sensor stands 10 m in front of an endless wall.
/// The seed places houses, cars and trees. Throws std::invalid_argument for any other name.
std::shared_ptr<const Scene> MakeScene(const std::string& name, uint64_t seed);

/// The names that MakeScene knows.
std::vector<std::string> SceneNames();

}  // namespace orva::sim
