// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cmath>
#include <numbers>

namespace orva::sim {

/// Metres, or a direction. World and sensor frames both have x forward (along the street), y left, z up.
struct Vec3 {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

inline Vec3 operator+(const Vec3& a, const Vec3& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vec3 operator-(const Vec3& a, const Vec3& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vec3 operator*(double s, const Vec3& a) {
  return {s * a.x, s * a.y, s * a.z};
}
inline double Dot(const Vec3& a, const Vec3& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

inline double Radians(double degrees) {
  return degrees * (std::numbers::pi / 180.0);
}

/// Unit vector; azimuth positive to the left, elevation positive upwards, both in degrees.
inline Vec3 Direction(double azimuth, double elevation) {
  const double a = Radians(azimuth);
  const double e = Radians(elevation);
  return {std::cos(e) * std::cos(a), std::cos(e) * std::sin(a), std::sin(e)};
}

/// Rotation as its three columns: where the sensor's axes point in the world.
struct Rotation {
  Vec3 x{1.0, 0.0, 0.0};
  Vec3 y{0.0, 1.0, 0.0};
  Vec3 z{0.0, 0.0, 1.0};

  /// Rz(yaw) * Ry(pitch) * Rx(roll), radians.
  static Rotation FromAngles(double roll, double pitch, double yaw) {
    const double cr = std::cos(roll), sr = std::sin(roll);
    const double cp = std::cos(pitch), sp = std::sin(pitch);
    const double cy = std::cos(yaw), sy = std::sin(yaw);
    return {{cy * cp, sy * cp, -sp},
            {cy * sp * sr - sy * cr, sy * sp * sr + cy * cr, cp * sr},
            {cy * sp * cr + sy * sr, sy * sp * cr - cy * sr, cp * cr}};
  }

  Vec3 ToWorld(const Vec3& v) const { return v.x * x + v.y * y + v.z * z; }
  Vec3 ToSensor(const Vec3& v) const { return {Dot(x, v), Dot(y, v), Dot(z, v)}; }
};

struct Pose {
  Vec3 position;  ///< metres
  Rotation rotation;
};

}  // namespace orva::sim
