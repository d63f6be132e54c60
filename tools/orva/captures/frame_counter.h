// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_FRAME_COUNTER_H_
#define ORVA_TOOLS_CAPTURES_FRAME_COUNTER_H_

#include <cstdint>
#include <optional>
#include <span>

#include "orva_driver.h"

namespace orva {

/// Frames, counted from 0, that a packet has a part in: more than one where a frame ends inside it.
struct FramesOfPacket {
  uint64_t first = 0;
  uint64_t last = 0;
};

/// Counts the frames of one sensor's packets in order, as the driver's index of a recording does. The packets
/// of frames in a row are, alone, a recording that replays to the same points.
class FrameCounter {
 public:
  /// Throws WrongUsage for a model whose packets mark no frame ends.
  explicit FrameCounter(LidarType model);

  /// Nothing for a packet that is not of the model.
  std::optional<FramesOfPacket> Add(std::span<const uint8_t> packet);

 private:
  LidarType model_;
  uint64_t frame_ = 0;
  std::optional<uint8_t> line_{};  ///< of an NV2's packet before
};

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_FRAME_COUNTER_H_
