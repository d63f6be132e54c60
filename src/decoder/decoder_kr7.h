// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "decoder/little_endian.h"
#include "decoder/model_decoder.h"

namespace tevoro::lidar {

struct KR7Model {
  static constexpr DecoderConstParam kConst = kLinePacketConstants;
  using FrameCounter = Field<26, 2>;
};

/// KR7: its packets yield no points, but their counter tells frames apart.
template <typename PC>
class KR7Impl : public ModelImpl<PC, KR7Model> {
 public:
  using ModelImpl<PC, KR7Model>::ModelImpl;

  /// True when the counter has fallen below its value at the start of the frame, not below the last one.
  bool IsNewFrame(const uint16_t& counter);

  bool SplitFrame(const uint8_t* data, size_t len, uint16_t& seq);

 private:
  bool started_ = false;
  uint16_t frame_start_counter_ = 0;
};

template <typename PC>
using DecoderKR7 = ModelDecoder<PC, KR7Impl<PC>>;

}  // namespace tevoro::lidar
