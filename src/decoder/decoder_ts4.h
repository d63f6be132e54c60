// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "decoder/frame_marker.h"
#include "decoder/model_decoder.h"

namespace tevoro::lidar {

/// TS4: its packets are accepted and yield nothing; a frame ends only when the recording does.
template <typename PC>
class TS4Impl {
 public:
  static constexpr DecoderConstParam kConst = kLinePacketConstants;

  explicit TS4Impl(Decoder<PC>* owner) : owner_(owner) {}

  static bool IsNewFrame(const uint16_t& line, const uint16_t& column) { return IsFrameEnd(line, column); }

  bool DecodeMsopPacket(const uint8_t*, size_t, uint16_t) { return false; }
  void EnableFinallyFrame() { owner_->split_cb_(kConst.LASER_NUM, 0.0); }
  bool SplitFrame(const uint8_t*, size_t, uint16_t&) { return false; }
  void UpdateCheckParam(const CheckParam*) {}

 private:
  Decoder<PC>* const owner_;
};

template <typename PC>
class DecoderTS4 : public ModelDecoder<PC, TS4Impl<PC>> {
 public:
  using ModelDecoder<PC, TS4Impl<PC>>::ModelDecoder;
};

}  // namespace tevoro::lidar
