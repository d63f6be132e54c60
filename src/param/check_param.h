// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace tevoro::lidar {

/// Grid codes with calibration: 192 lines x 256 columns, of which 128 are used.
inline constexpr size_t CALIB_TABLE_ENTRIES = 49152;

/// Calibration of one sensor. Packed: sections downloaded from the sensor are copied in byte for byte.
#pragma pack(push, 1)
struct CheckParam {
  uint8_t check_flag = 0;                     ///< all that KR7 and NV2 take of the record
  float azimuth[CALIB_TABLE_ENTRIES] = {};    ///< degrees, by grid code (line * 256 + column)
  float elevation[CALIB_TABLE_ENTRIES] = {};  ///< degrees, by grid code
  float weight[4] = {};  ///< distance correction: pulse ratio, distance, ratio squared, constant
  float near_filter[8] = {0, 0, 0, 0, 5.0F, 5.0F, 2.0F, 0};  ///< 0-3 near filter, 6-7 confidence
};
#pragma pack(pop)
static_assert(sizeof(CheckParam) == 1 + 2 * 4 * CALIB_TABLE_ENTRIES + 4 * 4 + 8 * 4);

}  // namespace tevoro::lidar
