// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "decoder/little_endian.h"
#include "decoder/model_decoder.h"

namespace tevoro::lidar {

/// KR7: its packets yield no points, but their counter tells frames apart.
template <typename PC>
class KR7Impl {
 public:
  static constexpr DecoderConstParam kConst = kLinePacketConstants;
  using FrameCounter = Field<26, 2>;

  explicit KR7Impl(Decoder<PC>* owner) : owner_(owner) {}

  /// True when the counter has fallen below its value at the start of the frame, not below the last one.
  bool IsNewFrame(const uint16_t& counter);

  bool DecodeMsopPacket(const uint8_t*, size_t, uint16_t) { return false; }
  void EnableFinallyFrame() { owner_->split_cb_(kConst.LASER_NUM, 0.0); }
  bool SplitFrame(const uint8_t* data, size_t len, uint16_t& seq);
  void UpdateCheckParam(const CheckParam*) {}

 private:
  Decoder<PC>* const owner_;
  bool started_ = false;
  uint16_t frame_start_counter_ = 0;
};

template <typename PC>
class DecoderKR7 : public ModelDecoder<PC, KR7Impl<PC>> {
 public:
  using ModelDecoder<PC, KR7Impl<PC>>::ModelDecoder;
};

}  // namespace tevoro::lidar
