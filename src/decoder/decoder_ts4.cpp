// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder_ts4.h"

#include "common/cloud_types.h"

namespace tevoro::lidar {

#define ORVA_INSTANTIATE(PC)  \
  template class TS4Impl<PC>; \
  template class DecoderTS4<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
