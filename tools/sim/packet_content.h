// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

#include "geometry.h"

namespace orva::sim {

struct Calibration;

/// One beam's result.
struct Measurement {
  uint32_t line = 0;
  uint32_t column = 0;
  bool returned = false;   ///< false: nothing came back
  double distance = 0.0;   ///< metres, with noise
  uint32_t intensity = 0;  ///< counts, 12 bits
};

/// Sensor axes: radians per second, and metres per second squared with gravity as +z.
struct ImuSample {
  Vec3 angular_rate;
  Vec3 specific_force;
  uint32_t stamp = 0;  ///< changes with every sample; never 0
};

/// The sensor's own state.
struct Housekeeping {
  uint16_t status_word = 0;
  double temperature_a = 0.0;  ///< degrees Celsius
  double temperature_b = 0.0;
  uint8_t status_byte = 0;
};

/// What one packet says, before it becomes bytes.
struct PacketContent {
  std::span<const Measurement> blocks;
  int64_t time_ns = 0;  ///< UTC, nanoseconds since the epoch
  uint64_t frame = 0;   ///< scan that the first block belongs to
  ImuSample imu;
  Housekeeping housekeeping;
};

}  // namespace orva::sim
