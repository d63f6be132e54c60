// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>

#include "packets.h"
#include "param/check_param.h"
#include "temp_folder.h"

namespace orva::test {

using tevoro::lidar::CALIB_TABLE_ENTRIES;
using tevoro::lidar::CheckParam;

/// The record is packed: no pointer to float may point into it, so its small fields are copied in as bytes.
inline void SetWeights(CheckParam& check, const float (&weight)[4], const float (&near_filter)[8]) {
  std::memcpy(&check.weight, weight, sizeof(weight));
  std::memcpy(&check.near_filter, near_filter, sizeof(near_filter));
}

/// A sensor's own: the even grid with a small error per code, small corrections, the near filter on.
inline std::unique_ptr<CheckParam> PlausibleCalibration(Random& random) {
  auto check = std::make_unique<CheckParam>();
  const auto error = [&random] { return static_cast<float>(Pick(random, 0, 1000)) * 1e-4F - 0.05F; };
  for (size_t code = 0; code < CALIB_TABLE_ENTRIES; ++code) {
    check->azimuth[code] = -60.0F + static_cast<float>(code % 256) * 0.47F + error();
    check->elevation[code] = 45.0F - static_cast<float>(code / 256) * 0.47F + error();
  }
  SetWeights(*check, {0.11F, 0.003F, -0.017F, 0.21F}, {90.0F, 12.0F, 150.0F, 4.0F, 5.0F, 5.0F, 2.0F, 0.0F});
  return check;
}

/// Whatever a broken file or sensor may hold: edges of the angle tables and of the integers, infinities.
inline std::unique_ptr<CheckParam> HostileCalibration(Random& random) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float values[] = {nan,    inf,         -inf,   1e30F,    -1e30F,  2.14748e7F,    -3e7F,    449.99F,
                          450.0F, -180.0F,     180.0F, -180.01F, -449.9F, 0.00999F,      -0.0049F, -0.0F,
                          1e-42F, 21474836.0F, 90.0F,  -90.0F,   45.0F,   -21474836.48F, 12.5F,    1.0F};
  const auto value = [&] { return values[random() % std::size(values)]; };
  auto check = std::make_unique<CheckParam>();
  for (size_t code = 0; code < CALIB_TABLE_ENTRIES; ++code) {
    check->azimuth[code] = value();
    check->elevation[code] = value();
  }
  for (size_t i = 0; i < 4; ++i) check->weight[i] = Pick(random, 0, 2) == 0 ? value() : 0.5F;
  for (size_t i = 0; i < 8; ++i) check->near_filter[i] = Pick(random, 0, 1) == 0 ? value() : 3.0F;
  return check;
}

/// Writes a record as a calibration folder whose text gives back every bit.
inline void WriteCalibration(const TempFolder& folder, const CheckParam& check) {
  const auto write = [&folder](const std::string& name, const void* field, size_t count,
                               std::string text = "") {
    std::vector<float> values(count);
    std::memcpy(values.data(), field, count * sizeof(float));
    for (const float value : values) {
      char number[32];
      std::snprintf(number, sizeof(number), "%.9g,", static_cast<double>(value));
      text += number;
    }
    text.back() = '\n';
    folder.Write(name, text);
  };
  write("azimuth.csv", &check.azimuth, CALIB_TABLE_ENTRIES);
  write("elevation.csv", &check.elevation, CALIB_TABLE_ENTRIES);
  write("weight.csv", &check.weight, 4, "label,");
  write("near_filter.csv", &check.near_filter, 8);
}

}  // namespace orva::test
