// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_IMU_PACKETS_H_
#define ORVA_TOOLS_CAPTURES_IMU_PACKETS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "decoder/packet_blocks.h"
#include "orva_driver.h"

namespace orva {

/// The IMU samples of a recording: the driver delivers them live only. The driver's own code makes them, so
/// they are the same to the last bit.
class ImuPackets {
 public:
  explicit ImuPackets(LidarType model) : model_(model) {}

  /// The sample of a packet, or nothing: it carries none, the same one as the packet before, or is not the
  /// model's.
  std::optional<ImuMsg> Read(const std::uint8_t* packet, std::size_t length);

 private:
  std::optional<ImuMsg> ReadTs6(const std::uint8_t* packet);
  std::optional<ImuMsg> ReadNv2(const std::uint8_t* packet);

  LidarType model_;
  tevoro::lidar::UtcClock clock_;
  std::uint32_t last_stamp_ = 0;      ///< TS6; 0: none
  tevoro::lidar::IMUBlock last_imu_;  ///< NV2
};

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_IMU_PACKETS_H_
