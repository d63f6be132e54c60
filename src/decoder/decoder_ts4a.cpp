// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder_ts4a.h"

#include "common/cloud_types.h"
#include "decoder/frame_marker.h"
#include "decoder/projection.h"

namespace tevoro::lidar {

template <typename PC>
bool TS4AImpl<PC>::DecodeMsopPacket(const uint8_t* data, size_t /*len*/, uint16_t start) {
  if (start >= kConst.BLOCKS_PER_PKT) return false;
  const auto blocks = static_cast<uint16_t>(kConst.BLOCKS_PER_PKT - start);
  uint16_t after = 0;
  const bool ended = FindFrameEnd(data, kFirstBlock + kBlockStride * start, kBlockStride, blocks, after);
  if (owner_->point_cloud_) {
    AppendPoints<kConst.BLOCKS_PER_PKT>(*owner_->point_cloud_, start, [](auto*) {});
  }
  if (ended) owner_->split_cb_(kConst.LASER_NUM, 0.0);
  return ended;
}

template <typename PC>
bool TS4AImpl<PC>::SplitFrame(const uint8_t* data, size_t /*len*/, uint16_t& seq) const {
  return FindFrameEnd(data, kFirstBlock, kBlockStride, kConst.BLOCKS_PER_PKT, seq);
}

#define ORVA_INSTANTIATE(PC)   \
  template class TS4AImpl<PC>; \
  template class DecoderTS4A<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
