// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_FILE_POINT_H_
#define ORVA_TOOLS_FORMATS_FILE_POINT_H_

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "formats/output_file.h"
#include "shared/cloud.h"

namespace orva {

/// A point as it lies in PCD and PLY files, without padding: x, y, z as 32-bit floats in metres, intensity as
/// a 32-bit float and label as a 32-bit unsigned integer (the types that point cloud libraries look for under
/// these names; the values are integers), and timestamp as a 64-bit float in seconds since the epoch, 0 where
/// the model gives none.
constexpr std::size_t kPointRecordSize = 4 * 4 + 4 + 8;

/// Appends all points, in order.
inline void WritePoints(const Cloud& cloud, OutputFile& file) {
  static_assert(std::endian::native == std::endian::little, "the files are little-endian");
  constexpr std::size_t kAtOnce = 1024;  // points that the first cache holds packed, 28 KB
  std::array<std::byte, kAtOnce * kPointRecordSize> bytes;
  for (std::size_t done = 0; done < cloud.points.size(); done += kAtOnce) {
    const std::size_t count = std::min(kAtOnce, cloud.points.size() - done);
    std::byte* record = bytes.data();
    for (std::size_t i = done; i < done + count; ++i, record += kPointRecordSize) {
      const PointTime& point = cloud.points[i];
      const std::array<float, 4> floats = {point.x, point.y, point.z, static_cast<float>(point.intensity)};
      const std::uint32_t label = point.label;
      std::memcpy(record, floats.data(), 16);
      std::memcpy(record + 16, &label, 4);
      std::memcpy(record + 20, &point.timestamp, 8);
    }
    file.Write(bytes.data(), count * kPointRecordSize);
  }
}

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_FILE_POINT_H_
