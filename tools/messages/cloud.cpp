// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include "messages/from_driver.h"

namespace orva::messages {
namespace {

constexpr double kLatest = 2147483648.0;  ///< seconds that a 32-bit stamp cannot hold any more

bool IsTime(double seconds) {
  return seconds > 0.0 && seconds < kLatest;  // false for NaN
}

struct Layout {
  std::uint32_t intensity;  ///< x, y, z are at 0, 4, 8 in both
  std::uint32_t ring;
  std::uint32_t time;
  std::uint32_t size;
};
constexpr Layout kPackedLayout = {12, 16, 18, 22};
constexpr Layout kPclLayout = {16, 20, 24, 32};

void SetFields(const Layout& layout, PointCloud2& message) {
  message.fields = {{"x", 0, PointField::FLOAT32, 1},
                    {"y", 4, PointField::FLOAT32, 1},
                    {"z", 8, PointField::FLOAT32, 1},
                    {"intensity", layout.intensity, PointField::FLOAT32, 1},
                    {"ring", layout.ring, PointField::UINT16, 1},
                    {"time", layout.time, PointField::FLOAT32, 1}};
}

/// Unrolled for each layout, so that the loop over points has constant offsets.
template <const Layout& layout>
std::size_t WritePoints(const std::vector<PointTime>& points, double stamp, InvalidPoints invalid,
                        std::uint8_t* out) {
  const bool drop = invalid == InvalidPoints::kDrop;
  const float absent = invalid == InvalidPoints::kNan ? std::numeric_limits<float>::quiet_NaN() : 0.0F;
  const std::uint64_t absent_z = std::bit_cast<std::uint32_t>(absent);
  const std::uint64_t absent_xy = absent_z << 32 | absent_z;
  const std::uint8_t* const begin = out;
  double timestamp = 0.0;  // many points in a row share one
  float time = 0.0F;
  for (const PointTime& point : points) {
    std::uint64_t xy;
    std::memcpy(&xy, &point, sizeof(xy));
    std::uint64_t z = std::bit_cast<std::uint32_t>(point.z);
    const bool valid = ((xy | z) & 0x7FFFFFFF7FFFFFFF) != 0;  // -0.0 is 0 too
    if (!valid && drop) {
      continue;
    }
    if (point.timestamp != timestamp) {
      timestamp = point.timestamp;
      time = IsTime(timestamp) ? static_cast<float>(timestamp - stamp) : 0.0F;
    }
    xy = valid ? xy : absent_xy;
    z = valid ? z : absent_z;
    const float intensity = point.intensity;
    std::memcpy(out, &xy, sizeof(xy));
    std::memcpy(out + sizeof(xy), &z, sizeof(float));
    std::memcpy(out + layout.intensity, &intensity, sizeof(intensity));
    std::memcpy(out + layout.ring, &point.label, sizeof(point.label));
    std::memcpy(out + layout.time, &time, sizeof(time));
    out += layout.size;
  }
  return static_cast<std::size_t>(out - begin) / layout.size;
}

}  // namespace

std::size_t RowLength(const PointCloud<PointTime>& cloud) {
  const std::vector<PointTime>& points = cloud.points;
  std::size_t length = 0;
  while (length < points.size() && points[length].label == points.front().label) {
    ++length;
  }
  if (length == 0 || points.size() % length != 0) {
    return 0;
  }
  for (std::size_t start = length; start < points.size(); start += length) {
    const std::uint16_t line = points[start].label;
    unsigned others = points[start - 1].label == line ? 1 : 0;
    for (std::size_t i = start; i < start + length; ++i) {
      others |= points[i].label ^ unsigned { line };
    }
    if (others != 0) {
      return 0;
    }
  }
  return length;
}

Time ToTime(double seconds) {
  if (!IsTime(seconds)) {
    return {};
  }
  const double whole = std::floor(seconds);
  auto nanoseconds = static_cast<std::int64_t>(std::llround((seconds - whole) * 1e9));
  auto sec = static_cast<std::int64_t>(whole);
  if (nanoseconds == 1'000'000'000 && sec < std::numeric_limits<std::int32_t>::max()) {
    nanoseconds = 0;
    ++sec;
  }
  return {static_cast<std::int32_t>(sec),
          static_cast<std::uint32_t>(std::min<std::int64_t>(nanoseconds, 999'999'999))};
}

double StampOf(const PointCloud<PointTime>& cloud, double captured) {
  if (IsTime(cloud.timestamp)) {
    return cloud.timestamp;
  }
  if (!cloud.points.empty() && IsTime(cloud.points.front().timestamp)) {
    return cloud.points.front().timestamp;
  }
  return captured;
}

void FillPointCloud2(const PointCloud<PointTime>& cloud, double captured, const CloudOptions& options,
                     PointCloud2& message) {
  const bool packed = options.layout == PointLayout::kPacked;
  const bool drop = options.invalid == InvalidPoints::kDrop;
  const Layout& layout = packed ? kPackedLayout : kPclLayout;
  const double stamp = StampOf(cloud, captured);
  message.header.stamp = ToTime(stamp);
  message.header.frame_id = options.frame_id;
  SetFields(layout, message);
  message.is_bigendian = false;
  message.is_dense = options.invalid != InvalidPoints::kNan;
  message.point_step = layout.size;
  message.data.resize(cloud.points.size() * layout.size);
  const std::size_t count =
      packed ? WritePoints<kPackedLayout>(cloud.points, stamp, options.invalid, message.data.data())
             : WritePoints<kPclLayout>(cloud.points, stamp, options.invalid, message.data.data());
  message.data.resize(count * layout.size);
  const std::size_t row = options.organized && !drop ? RowLength(cloud) : 0;
  message.width = static_cast<std::uint32_t>(row == 0 ? count : row);
  message.height = static_cast<std::uint32_t>(row == 0 ? 1 : count / row);
  message.row_step = message.width * message.point_step;
}

}  // namespace orva::messages
