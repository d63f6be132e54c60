// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder_ts4b.h"

#include "common/cloud_types.h"

namespace tevoro::lidar {

template <typename PC>
bool TS4BImpl<PC>::DecodeMsopPacket(const uint8_t* data, size_t /*len*/, uint16_t start) {
  // The packets carry no clock: the frame and its points have time 0.
  const bool ended = this->DecodeBlocks(data, start, {});
  this->CloseFrame(data, ended, 0.0);
  return ended;
}

#define ORVA_INSTANTIATE(PC) template class TS4BImpl<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
