// SPDX-License-Identifier: Apache-2.0
#include "view/page_frame.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace orva::view {
namespace {

constexpr std::uint32_t kNoReturn = 0xFFFFF;
constexpr std::uint32_t kLastWideCode = kNoReturn - 1;
constexpr std::uint32_t kLastCode = 0xFFFF;
constexpr std::uint16_t kLinesAsRuns = 1;

struct Axis {
  float low = 0.0F;
  float step = kPageStep;
  std::uint32_t last = 0;

  std::uint32_t CodeOf(float value) const {
    const double code = std::round((double{value} - double{low}) / double{step});
    return std::min(static_cast<std::uint32_t>(std::max(code, 0.0)), last);
  }
};

bool HasReturn(const PointTime& point) {
  const bool finite = std::isfinite(point.x) && std::isfinite(point.y) && std::isfinite(point.z);
  return finite && (point.x != 0.0F || point.y != 0.0F || point.z != 0.0F);
}

Axis FitAxis(const Cloud& cloud, float PointTime::*coordinate, std::uint32_t last) {
  float low = std::numeric_limits<float>::max();
  float high = std::numeric_limits<float>::lowest();
  for (const PointTime& point : cloud.points) {
    if (HasReturn(point)) {
      low = std::min(low, point.*coordinate);
      high = std::max(high, point.*coordinate);
    }
  }
  if (low > high) {
    return {0.0F, kPageStep, last};
  }
  const double step = (double{high} - double{low}) / last;  // the span of two floats may be no float
  return {low, std::max(kPageStep, static_cast<float>(step)), last};
}

struct Run {
  std::uint16_t line;
  std::uint16_t points;
};

std::vector<Run> RunsOf(const Cloud& cloud) {
  std::vector<Run> runs;
  for (const PointTime& point : cloud.points) {
    if (runs.empty() || runs.back().line != point.label || runs.back().points == 0xFFFF) {
      runs.push_back({point.label, 0});
    }
    ++runs.back().points;
  }
  return runs;
}

/// Appends values to a buffer that was made large enough.
class Writer {
 public:
  explicit Writer(std::uint8_t* at) : at_(at) {}

  template <typename T>
  void Put(T value) {
    static_assert(std::endian::native == std::endian::little, "the page reads little-endian");
    std::memcpy(at_, &value, sizeof value);
    at_ += sizeof value;
  }

 private:
  std::uint8_t* at_;
};

std::int16_t Hundredths(double temperature) {
  return static_cast<std::int16_t>(std::lround(std::clamp(temperature * 100.0, -32768.0, 32767.0)));
}

}  // namespace

Bytes EncodePageFrame(const Cloud& cloud, std::uint32_t number, double time) {
  const Axis x = FitAxis(cloud, &PointTime::x, kLastWideCode);
  const Axis y = FitAxis(cloud, &PointTime::y, kLastWideCode);
  const Axis z = FitAxis(cloud, &PointTime::z, kLastCode);
  const std::vector<Run> runs = RunsOf(cloud);
  const std::size_t count = cloud.points.size();
  const bool small_lines = std::all_of(cloud.points.begin(), cloud.points.end(),
                                       [](const PointTime& point) { return point.label <= 0xFF; });
  const bool as_runs = !small_lines || runs.size() * sizeof(Run) <= count;
  const std::size_t lines_size = as_runs ? runs.size() * sizeof(Run) : count;

  Bytes bytes(kPageHeaderSize + count * 9 + lines_size);
  Writer header(bytes.data());
  for (const char letter : {'O', 'R', 'V', 'F'}) {
    header.Put(letter);
  }
  header.Put(std::uint16_t{1});
  header.Put(as_runs ? kLinesAsRuns : std::uint16_t{0});
  header.Put(number);
  header.Put(static_cast<std::uint32_t>(count));
  header.Put(time);
  header.Put(std::uint32_t{0});
  for (const float value : {x.low, y.low, z.low, x.step, y.step, z.step}) {
    header.Put(value);
  }
  header.Put(static_cast<std::uint32_t>(as_runs ? runs.size() : 0));
  header.Put(cloud.status_word);
  header.Put(cloud.status_byte);
  header.Put(std::uint8_t{0});
  header.Put(Hundredths(cloud.temperature_a));
  header.Put(Hundredths(cloud.temperature_b));

  std::uint8_t* const arrays = bytes.data() + kPageHeaderSize;
  Writer x_out(arrays);
  Writer y_out(arrays + count * 2);
  Writer z_out(arrays + count * 4);
  Writer intensity_out(arrays + count * 6);
  Writer line_out(arrays + count * 8);
  Writer upper_out(arrays + count * 8 + lines_size);
  for (const PointTime& point : cloud.points) {
    const bool has_return = HasReturn(point);
    const std::uint32_t x_code = has_return ? x.CodeOf(point.x) : kNoReturn;
    const std::uint32_t y_code = has_return ? y.CodeOf(point.y) : 0;
    x_out.Put(static_cast<std::uint16_t>(x_code));
    y_out.Put(static_cast<std::uint16_t>(y_code));
    z_out.Put(static_cast<std::uint16_t>(has_return ? z.CodeOf(point.z) : 0));
    intensity_out.Put(point.intensity);
    upper_out.Put(static_cast<std::uint8_t>(x_code >> 16 | y_code >> 16 << 4));
    if (!as_runs) {
      line_out.Put(static_cast<std::uint8_t>(point.label));
    }
  }
  if (as_runs) {
    for (const Run& run : runs) {
      line_out.Put(run.line);
      line_out.Put(run.points);
    }
  }
  return bytes;
}

}  // namespace orva::view
