// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "decoder/decoder.h"

namespace tevoro::lidar {

template <typename PC>
class DecoderFactory {
 public:
  /// The model's decoder, or null after the red line for an unknown model. Prints "type:" and the number.
  static std::shared_ptr<Decoder<PC>> CreateDecoder(const LidarType& type, const DecoderParam& param);
};

}  // namespace tevoro::lidar
