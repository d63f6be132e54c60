// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder_ts4a.h"

#include "common/cloud_types.h"
#include "decoder/frame_marker.h"

namespace tevoro::lidar {

template <typename PC>
bool TS4AImpl<PC>::DecodeMsopPacket(const uint8_t* data, size_t /*len*/, uint16_t start) {
  constexpr uint16_t kBlocks = TS4AModel::kConst.BLOCKS_PER_PKT;
  if (start >= kBlocks) return false;
  uint16_t after = 0;
  const bool ended = FindFrameEnd(data, TS4AModel::kFirstBlock + TS4AModel::kBlockStride * start,
                                  TS4AModel::kBlockStride, static_cast<uint16_t>(kBlocks - start), after);
  bool cut = false;
  if (this->owner_->point_cloud_) {
    appender_.Append(*this->owner_->point_cloud_, start, [](auto*) {});
    cut = bound_.Exceeded(kBlocks - size_t{start}, ended);
  }
  if (ended || cut) this->EnableFinallyFrame();
  return ended;
}

template <typename PC>
bool TS4AImpl<PC>::SplitFrame(const uint8_t* data, size_t /*len*/, uint16_t& seq) const {
  return FindFrameEnd(data, TS4AModel::kFirstBlock, TS4AModel::kBlockStride, TS4AModel::kConst.BLOCKS_PER_PKT,
                      seq);
}

#define ORVA_INSTANTIATE(PC) template class TS4AImpl<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
