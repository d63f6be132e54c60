// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <limits>

#include "orva_driver.h"

namespace tevoro::lidar {

/// Truncates towards zero. NaN, infinities and what does not fit give INT32_MIN, on every machine: such an
/// angle lies outside the sine tables and outside any sane limit.
inline int32_t TruncateToAngle(double value) {
  if (!(value > -2147483649.0 && value < 2147483648.0)) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(value);
}

/// The same for whole metres.
inline int64_t TruncateToMetres(float value) {
  if (!(value >= -0x1p63F && value < 0x1p63F)) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(value);
}

/// Sines and cosines of angles in hundredths of a degree, from -180.00 to 449.99 degrees. Built once in a
/// process and shared by all decoders.
class TrigTable {
 public:
  static constexpr int32_t kFirst = -18000;
  static constexpr int32_t kLast = 44999;

  static const TrigTable& Get();

  /// An angle outside the table counts as 0.
  float Sin(int32_t angle) const { return sin_[Index(angle)]; }
  float Cos(int32_t angle) const { return cos_[Index(angle)]; }

 private:
  TrigTable();

  static size_t Index(int32_t angle) {
    return static_cast<size_t>((angle < kFirst || angle > kLast ? 0 : angle) - kFirst);
  }

  std::array<float, kLast - kFirst + 1> sin_;
  std::array<float, kLast - kFirst + 1> cos_;
};

/// Are both angles, in hundredths of a degree, within the limits? NaN limits admit nothing.
inline bool AzimuthInLimits(const DecoderParam& param, int32_t azimuth) {
  const float degrees = static_cast<float>(azimuth) * 0.01F;
  return param.min_azimuth <= degrees && degrees <= param.max_azimuth;
}
inline bool ElevationInLimits(const DecoderParam& param, int32_t elevation) {
  const float degrees = static_cast<float>(elevation) * 0.01F;
  return param.min_elevation <= degrees && degrees <= param.max_elevation;
}

}  // namespace tevoro::lidar
