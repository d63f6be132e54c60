// SPDX-License-Identifier: Apache-2.0
#include "motion.h"

namespace orva::sim {
namespace {

constexpr double kGravity = 9.80665;

// Steps of the numerical derivatives, in seconds: the motion's fastest part is the pitch at about 1 Hz, so
// the error is below a thousandth of an IMU count.
constexpr double kRateStep = 1e-4;
constexpr double kForceStep = 1e-3;

double Swing(double hertz, double time) {
  return std::sin(2.0 * std::numbers::pi * hertz * time);
}

}  // namespace

Pose Motion::PoseAt(double time) const {
  Pose pose;
  pose.position = start;
  if (reach > 0.0) pose.position.x += reach * std::sin(speed / reach * time);
  const double sway = Radians(sway_deg);
  pose.rotation = Rotation::FromAngles(sway / 3.0 * Swing(0.7, time), sway / 3.0 * Swing(1.1, time),
                                       sway * Swing(0.4, time));
  return pose;
}

Vec3 Motion::AngularRate(double time) const {
  const Rotation before = PoseAt(time - kRateStep).rotation;
  const Rotation now = PoseAt(time).rotation;
  const Rotation after = PoseAt(time + kRateStep).rotation;
  const auto turn = [&](const Vec3& later, const Vec3& earlier, const Vec3& onto) {
    return Dot(later - earlier, onto) / (2.0 * kRateStep);
  };
  return {turn(after.y, before.y, now.z), turn(after.z, before.z, now.x), turn(after.x, before.x, now.y)};
}

Vec3 Motion::SpecificForce(double time) const {
  const Pose now = PoseAt(time);
  const Vec3 acceleration =
      1.0 / (kForceStep * kForceStep) *
      (PoseAt(time - kForceStep).position + PoseAt(time + kForceStep).position - 2.0 * now.position);
  return now.rotation.ToSensor(acceleration + Vec3{0.0, 0.0, kGravity});
}

}  // namespace orva::sim
