// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_FILE_POINT_H_
#define ORVA_TOOLS_FORMATS_FILE_POINT_H_

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "shared/cloud.h"

namespace orva {

/// A point as it lies in PCD and PLY files, without padding: x, y, z as 32-bit floats in metres, intensity as
/// a 32-bit float and label as a 32-bit unsigned integer (the types that point cloud libraries look for under
/// these names; the values are integers), and timestamp as a 64-bit float in seconds since the epoch, 0 where
/// the model gives none.
constexpr std::size_t kPointRecordSize = 4 * 4 + 4 + 8;

/// The bytes of all points, in order.
inline std::vector<std::byte> PackPoints(const Cloud& cloud) {
  static_assert(std::endian::native == std::endian::little, "the files are little-endian");
  std::vector<std::byte> bytes(cloud.points.size() * kPointRecordSize);
  std::byte* record = bytes.data();
  for (const PointTime& point : cloud.points) {
    const std::array<float, 4> floats = {point.x, point.y, point.z, static_cast<float>(point.intensity)};
    const std::uint32_t label = point.label;
    std::memcpy(record, floats.data(), 16);
    std::memcpy(record + 16, &label, 4);
    std::memcpy(record + 20, &point.timestamp, 8);
    record += kPointRecordSize;
  }
  return bytes;
}

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_FILE_POINT_H_
