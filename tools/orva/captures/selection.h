// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_SELECTION_H_
#define ORVA_TOOLS_CAPTURES_SELECTION_H_

#include <array>
#include <cstdint>
#include <optional>

#include "captures/frame_counter.h"
#include "captures/time_window.h"

namespace orva {

using Ipv4Address = std::array<uint8_t, 4>;

/// What is taken of a recording; without a wish, everything that the driver reads.
struct Selection {
  std::optional<uint16_t> port{};  ///< that the datagrams went to
  std::optional<uint16_t> sensor_port{};
  std::optional<Ipv4Address> source{};
  TimeWindow window{};
  std::optional<LidarType> model{};  ///< with `frames`
  std::optional<FramesOfPacket> frames{};
};

/// Adds --port, --sensor-port and --source.
void AddSenderOptions(CLI::App& command, Selection& selection);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_SELECTION_H_
