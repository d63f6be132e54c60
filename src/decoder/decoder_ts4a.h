// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "decoder/append_points.h"
#include "decoder/frame_bound.h"
#include "decoder/model_decoder.h"

namespace tevoro::lidar {

struct TS4AModel {
  static constexpr DecoderConstParam kConst = ModelConstants(1360, 192, 32);
  // Blocks stand closer together than in a TS4B packet of the same length.
  static constexpr size_t kFirstBlock = 25;
  static constexpr size_t kBlockStride = 25;
};

/// TS4A: tracks the frames, and cuts one that goes on and on; measures nothing. Every block is a point at the
/// origin, and calibration has nothing to act on.
template <typename PC>
class TS4AImpl : public ModelImpl<PC, TS4AModel> {
 public:
  using ModelImpl<PC, TS4AModel>::ModelImpl;

  bool DecodeMsopPacket(const uint8_t* data, size_t len, uint16_t start);
  bool SplitFrame(const uint8_t* data, size_t len, uint16_t& seq) const;

 private:
  PointAppender<PC, TS4AModel::kConst.BLOCKS_PER_PKT> appender_;
  FrameBound bound_;
};

template <typename PC>
using DecoderTS4A = ModelDecoder<PC, TS4AImpl<PC>>;

}  // namespace tevoro::lidar
