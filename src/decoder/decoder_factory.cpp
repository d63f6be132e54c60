// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder_factory.h"

#include <string>

#include "common/cloud_types.h"
#include "common/console.h"
#include "decoder/decoder_kr7.h"
#include "decoder/decoder_nv2.h"
#include "decoder/decoder_ts4.h"
#include "decoder/decoder_ts4a.h"
#include "decoder/decoder_ts4b.h"
#include "decoder/decoder_ts6.h"

namespace tevoro::lidar {

template <typename PC>
std::shared_ptr<Decoder<PC>> DecoderFactory<PC>::CreateDecoder(const LidarType& type,
                                                               const DecoderParam& param) {
  PrintLine("type:" + std::to_string(static_cast<int32_t>(type)));
  switch (type) {
    case KR7:
      return std::make_shared<DecoderKR7<PC>>(param);
    case NV2:
      return std::make_shared<DecoderNV2<PC>>(param);
    case TS4A:
      return std::make_shared<DecoderTS4A<PC>>(param);
    case TS4B:
      return std::make_shared<DecoderTS4B<PC>>(param);
    case TS4:
      return std::make_shared<DecoderTS4<PC>>(param);
    case TS6:
      return std::make_shared<DecoderTS6<PC>>(param);
  }
  PrintLine(Colour::kRed, "Wrong LiDAR Type. Please check your LiDAR Version! ");
  return nullptr;
}

#define ORVA_INSTANTIATE(PC) template class DecoderFactory<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
