// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include "orva_driver.h"
#include "packet_content.h"

namespace orva::sim {

/// How a model scans, and how it writes a packet. A further model is one more row in model.cpp and its
/// encode function.
struct Model {
  LidarType type;
  const char* name;
  size_t packet_size;  ///< bytes
  uint32_t lines;
  uint32_t columns;            ///< the scan goes line by line, columns from left to right
  uint32_t blocks_per_packet;  ///< divides lines * columns
  bool measures;               ///< false: the packets carry no distances
  bool has_calibration;        ///< beams and distances have per-unit tables
  uint32_t table_copies;       ///< how often the calibration files repeat their values
  double left, right;          ///< degrees, azimuth of the first and of the last column
  double top, bottom;          ///< degrees, elevation of the first and of the last line
  /// Writes everything after the identifier into a zeroed packet.
  void (*encode)(const PacketContent& content, const Calibration& calibration, uint8_t* packet);

  uint32_t BlocksPerFrame() const { return lines * columns; }
  uint32_t PacketsPerFrame() const { return BlocksPerFrame() / blocks_per_packet; }
};

/// Throws std::invalid_argument for a number that is no model.
const Model& FindModel(LidarType type);

}  // namespace orva::sim
