// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "packets.h"
#include "param/check_param.h"
#include "sim/calibration.h"
#include "sim/model.h"
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
  sim::Calibration unit;
  unit.azimuth.resize(CALIB_TABLE_ENTRIES);
  unit.elevation.resize(CALIB_TABLE_ENTRIES);
  std::memcpy(unit.azimuth.data(), &check.azimuth, sizeof(check.azimuth));
  std::memcpy(unit.elevation.data(), &check.elevation, sizeof(check.elevation));
  std::memcpy(unit.weight.data(), &check.weight, sizeof(check.weight));
  std::memcpy(unit.near_filter.data(), &check.near_filter, sizeof(check.near_filter));
  sim::WriteCalibrationFolder(unit, sim::FindModel(TS4B), folder.Path());
}

inline std::string LittleEndian32(uint32_t value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> (8 * i));
  return bytes;
}

/// A reply that announces a stream of `stream_bytes` and carries `payload`.
inline std::string CalibrationReply(size_t stream_bytes, const std::string& payload) {
  std::string reply;
  reply.reserve(39 + payload.size());
  reply.append("ZZZZ").append(LittleEndian32(static_cast<uint32_t>(stream_bytes + 32)));
  return reply.append(28, '\x5A').append(payload).append("end");
}

/// The section stream of a calibration, its sections in the order of `markers`.
inline std::string SectionStream(const CheckParam& check, const std::string& markers = "ABCD") {
  const std::pair<const void*, size_t> fields[] = {{&check.elevation, sizeof(check.elevation)},
                                                   {&check.azimuth, sizeof(check.azimuth)},
                                                   {&check.weight, sizeof(check.weight)},
                                                   {&check.near_filter, sizeof(check.near_filter)}};
  std::string stream;
  for (const char marker : markers) {
    const auto& [field, size] = fields[marker - 'A'];
    stream += std::string(4, marker);
    stream.append(static_cast<const char*>(field), size);
  }
  return stream;
}

}  // namespace orva::test
