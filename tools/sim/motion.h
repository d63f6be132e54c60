// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geometry.h"

namespace orva::sim {

/// How the sensor moves: to and fro along x, with the sway of a vehicle. All zero: it stands still.
struct Motion {
  Vec3 start;             ///< metres, position at time 0
  double reach = 0.0;     ///< metres, x swings by this much to both sides of the start
  double speed = 0.0;     ///< metres per second, at the start, where it is greatest
  double sway_deg = 0.0;  ///< degrees, amplitude of the yaw; pitch and roll sway by a third of it

  /// `time` in seconds since the start.
  Pose PoseAt(double time) const;

  /// Radians per second about the sensor's axes.
  Vec3 AngularRate(double time) const;

  /// What an accelerometer feels along the sensor's axes, metres per second squared: at rest and level it is
  /// +9.80665 along z.
  Vec3 SpecificForce(double time) const;
};

}  // namespace orva::sim
