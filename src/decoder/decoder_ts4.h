// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "decoder/frame_marker.h"
#include "decoder/model_decoder.h"

namespace tevoro::lidar {

struct TS4Model {
  static constexpr DecoderConstParam kConst = kLinePacketConstants;
};

/// TS4: its packets are accepted and yield nothing; a frame ends only when the recording does.
template <typename PC>
class TS4Impl : public ModelImpl<PC, TS4Model> {
 public:
  using ModelImpl<PC, TS4Model>::ModelImpl;

  /// The frame test of the grid models; nothing asks it here.
  static bool IsNewFrame(const uint16_t& line, const uint16_t& column) { return IsFrameEnd(line, column); }
};

template <typename PC>
using DecoderTS4 = ModelDecoder<PC, TS4Impl<PC>>;

}  // namespace tevoro::lidar
