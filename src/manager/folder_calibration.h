// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "decoder/decoder.h"
#include "param/param_service.h"

namespace tevoro::lidar {

/// Gives the decoder the calibration of `folder`. False, and nothing given, where the folder cannot be used:
/// that is no failure of set-up, points then come uncalibrated.
template <typename PC>
bool ApplyFolder(const LidarType& type, const std::string& folder, ParamService& service,
                 Decoder<PC>& decoder) {
  try {
    if (!service.LoadCheckFolder(type, folder)) return false;
  } catch (const std::filesystem::filesystem_error&) {
    return false;
  }
  decoder.UpdateCheckParam(service.GetCheckParam(type));
  return true;
}

}  // namespace tevoro::lidar
