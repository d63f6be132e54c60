// SPDX-License-Identifier: Apache-2.0
#include "scene.h"

#include <algorithm>

namespace orva::sim {
namespace {

// A beam starts inside the housing: nearer than this nothing is seen.
constexpr double kNearest = 1e-3;

// The first root of a t^2 + 2 b t + c in front of the origin that `accept` takes.
template <typename Accept>
std::optional<double> FirstRoot(double a, double b, double c, Accept accept) {
  const double discriminant = b * b - a * c;
  if (a <= 0.0 || discriminant < 0.0) return std::nullopt;
  const double root = std::sqrt(discriminant);
  for (const double t : {(-b - root) / a, (-b + root) / a}) {
    if (t > kNearest && accept(t)) return t;
  }
  return std::nullopt;
}

}  // namespace

std::optional<Hit> Ground::Intersect(const Ray& ray) const {
  const double t = -ray.origin.z / ray.direction.z;
  if (!(t > kNearest) || !std::isfinite(t)) return std::nullopt;
  return Hit{t, std::abs(ray.direction.z), material_.At(ray.origin + t * ray.direction)};
}

std::optional<Hit> Box::Intersect(const Ray& ray) const {
  const std::array<double, 3> origin{ray.origin.x, ray.origin.y, ray.origin.z};
  const std::array<double, 3> direction{ray.direction.x, ray.direction.y, ray.direction.z};
  const std::array<double, 3> low{low_.x, low_.y, low_.z};
  const std::array<double, 3> high{high_.x, high_.y, high_.z};
  double enter = -std::numeric_limits<double>::infinity();
  double leave = std::numeric_limits<double>::infinity();
  size_t enter_axis = 0;
  size_t leave_axis = 0;
  for (size_t axis = 0; axis < 3; ++axis) {
    double first = (low[axis] - origin[axis]) / direction[axis];
    double second = (high[axis] - origin[axis]) / direction[axis];
    if (first > second) std::swap(first, second);
    if (first > enter) {
      enter = first;
      enter_axis = axis;
    }
    if (second < leave) {
      leave = second;
      leave_axis = axis;
    }
  }
  if (enter > leave || leave < kNearest) return std::nullopt;
  const bool outside = enter > kNearest;
  const double t = outside ? enter : leave;
  return Hit{t, std::abs(direction[outside ? enter_axis : leave_axis]),
             material_.At(ray.origin + t * ray.direction)};
}

Sphere Box::Bounds() const {
  const Vec3 half = 0.5 * (high_ - low_);
  return {low_ + half, std::sqrt(Dot(half, half))};
}

std::optional<Hit> Cylinder::Intersect(const Ray& ray) const {
  const Vec3 o = ray.origin - foot_;
  const Vec3& d = ray.direction;
  const auto t =
      FirstRoot(d.x * d.x + d.y * d.y, o.x * d.x + o.y * d.y, o.x * o.x + o.y * o.y - radius_ * radius_,
                [&](double root) { return o.z + root * d.z >= 0.0 && o.z + root * d.z <= height_; });
  if (!t) return std::nullopt;
  const Vec3 point = o + *t * d;
  return Hit{*t, std::abs(point.x * d.x + point.y * d.y) / radius_, material_.At(ray.origin + *t * d)};
}

Sphere Cylinder::Bounds() const {
  return {foot_ + Vec3{0.0, 0.0, height_ / 2.0}, std::hypot(radius_, height_ / 2.0)};
}

std::optional<Hit> Ellipsoid::Intersect(const Ray& ray) const {
  const auto scale = [this](const Vec3& v) { return Vec3{v.x / radii_.x, v.y / radii_.y, v.z / radii_.z}; };
  const Vec3 o = scale(ray.origin - centre_);
  const Vec3 d = scale(ray.direction);
  const auto t = FirstRoot(Dot(d, d), Dot(o, d), Dot(o, o) - 1.0, [](double) { return true; });
  if (!t) return std::nullopt;
  const Vec3 normal = scale(o + *t * d);
  return Hit{*t, std::abs(Dot(normal, ray.direction)) / std::sqrt(Dot(normal, normal)),
             material_.At(ray.origin + *t * ray.direction)};
}

Sphere Ellipsoid::Bounds() const {
  return {centre_, std::max({radii_.x, radii_.y, radii_.z})};
}

void Group::Add(std::unique_ptr<Primitive> part) {
  const Sphere bounds = part->Bounds();
  extent_ = std::max(extent_, std::sqrt(Dot(bounds.centre, bounds.centre)) + bounds.radius);
  parts_.push_back(std::make_unique<const Part>(Part{bounds, std::move(part)}));
}

std::optional<Hit> Group::Intersect(const Ray& ray) const {
  Ray local = ray;
  if (path_) local.origin = ray.origin - path_(ray.time);
  if (Sphere{{}, extent_}.MissedBy(local)) return std::nullopt;
  return NearestHit(parts_, local);
}

std::vector<const Group::Part*> Group::PartsWithin(const Cone& cone) const {
  std::vector<const Part*> parts;
  for (const auto& part : parts_) {
    if (!part->bounds.Outside(cone)) parts.push_back(part.get());
  }
  return parts;
}

}  // namespace orva::sim
