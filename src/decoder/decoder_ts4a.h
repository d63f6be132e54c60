// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "decoder/model_decoder.h"

namespace tevoro::lidar {

/// TS4A: tracks the frames, measures nothing. Every block is a point at the origin, and calibration has
/// nothing to act on.
template <typename PC>
class TS4AImpl {
 public:
  static constexpr DecoderConstParam kConst = ModelConstants(1360, 192, 32);
  // Blocks stand closer together than in a TS4B packet of the same length.
  static constexpr size_t kFirstBlock = 25;
  static constexpr size_t kBlockStride = 25;

  explicit TS4AImpl(Decoder<PC>* owner) : owner_(owner) {}

  bool DecodeMsopPacket(const uint8_t* data, size_t len, uint16_t start);
  void EnableFinallyFrame() { owner_->split_cb_(kConst.LASER_NUM, 0.0); }
  bool SplitFrame(const uint8_t* data, size_t len, uint16_t& seq) const;
  void UpdateCheckParam(const CheckParam*) {}

 private:
  Decoder<PC>* const owner_;
};

template <typename PC>
class DecoderTS4A : public ModelDecoder<PC, TS4AImpl<PC>> {
 public:
  using ModelDecoder<PC, TS4AImpl<PC>>::ModelDecoder;
};

}  // namespace tevoro::lidar
