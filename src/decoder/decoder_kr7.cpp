// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder_kr7.h"

#include "common/cloud_types.h"

namespace tevoro::lidar {

template <typename PC>
bool KR7Impl<PC>::IsNewFrame(const uint16_t& counter) {
  const bool fell_back = started_ && counter < frame_start_counter_;
  if (!started_ || fell_back) frame_start_counter_ = counter;
  started_ = true;
  return fell_back;
}

template <typename PC>
bool KR7Impl<PC>::SplitFrame(const uint8_t* data, size_t /*len*/, uint16_t& seq) {
  if (!IsNewFrame(static_cast<uint16_t>(KR7Model::FrameCounter::Read(data)))) return false;
  seq = 0;
  return true;
}

#define ORVA_INSTANTIATE(PC) template class KR7Impl<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
