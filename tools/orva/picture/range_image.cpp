// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <vector>

#include "picture/decoration.h"
#include "picture/pictures.h"
#include "picture/stroke_font.h"

namespace orva {
namespace {

constexpr float kDegrees = 180.0F / 3.14159265F;
constexpr float kLeft = 76.0F;  // margins around the view, pixels
constexpr float kRight = 152.0F;
constexpr float kTop = 104.0F;
constexpr float kBottom = 56.0F;
constexpr float kViewWidth = 1152.0F;

/// A straight line through (position, angle) samples.
class AngleAxis {
 public:
  void Add(float position, float angle) {
    count_ += 1.0;
    sum_p_ += position;
    sum_a_ += angle;
    sum_pp_ += static_cast<double>(position) * position;
    sum_pa_ += static_cast<double>(position) * angle;
  }
  /// Degrees per step, or nothing where the samples do not tell.
  std::optional<double> Slope() const {
    const double spread = count_ * sum_pp_ - sum_p_ * sum_p_;
    if (spread <= 1e-6 * count_) {
      return std::nullopt;
    }
    const double slope = (count_ * sum_pa_ - sum_p_ * sum_a_) / spread;
    return std::abs(slope) < 1e-4 ? std::nullopt : std::optional(slope);
  }
  double PositionOf(double angle) const {
    return (angle - sum_a_ / count_) / Slope().value_or(1.0) + sum_p_ / count_;
  }

 private:
  double count_ = 0.0;
  double sum_p_ = 0.0;
  double sum_a_ = 0.0;
  double sum_pp_ = 0.0;
  double sum_pa_ = 0.0;
};

/// The cloud as a grid: a row per laser line, a column per measurement of that line.
struct RangeGrid {
  std::vector<std::vector<const PointTime*>> rows;
  std::size_t columns = 1;
  AngleAxis azimuth;    ///< over columns, degrees
  AngleAxis elevation;  ///< over rows, degrees
};

/// Most rows have this many measurements.
std::size_t UsualSize(const std::vector<std::vector<const PointTime*>>& rows) {
  std::vector<std::size_t> sizes;
  for (const auto& row : rows) {
    if (!row.empty()) {
      sizes.push_back(row.size());
    }
  }
  if (sizes.empty()) {
    return 1;
  }
  std::nth_element(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2), sizes.end());
  return sizes[sizes.size() / 2];
}

RangeGrid Arrange(const Cloud& cloud) {
  RangeGrid grid;
  for (const PointTime& point : cloud.points) {
    if (point.label >= grid.rows.size()) {
      grid.rows.resize(std::size_t{point.label} + 1);
    }
    grid.rows[point.label].push_back(&point);
  }
  grid.columns = UsualSize(grid.rows);
  for (std::size_t line = 0; line < grid.rows.size(); ++line) {
    auto& row = grid.rows[line];
    if (row.size() >
        grid.columns) {  // NV2's first line comes twice: the packet that ends a frame belongs to it
      row.erase(row.begin(), row.end() - static_cast<std::ptrdiff_t>(grid.columns));
    }
    for (std::size_t column = 0; column < row.size(); ++column) {
      const PointTime& point = *row[column];
      if (IsValid(point) && std::isfinite(point.x + point.y + point.z)) {
        grid.azimuth.Add(static_cast<float>(column) + 0.5F, std::atan2(point.y, point.x) * kDegrees);
        grid.elevation.Add(static_cast<float>(line) + 0.5F,
                           std::atan2(point.z, std::hypot(point.x, point.y)) * kDegrees);
      }
    }
  }
  return grid;
}

std::string Degrees(int angle) {
  return std::to_string(angle) + "\u00B0";
}

}  // namespace

Canvas DrawRangeImage(const Cloud& cloud, const ColourScale& scale, const Caption& caption) {
  const RangeGrid grid = Arrange(cloud);
  const auto rows = static_cast<float>(std::max<std::size_t>(grid.rows.size(), 1));
  const auto columns = static_cast<float>(grid.columns);
  const auto azimuth_step = grid.azimuth.Slope();
  const auto elevation_step = grid.elevation.Slope();
  // A degree is as high as it is wide; without angles, cells are square.
  const float aspect =
      azimuth_step && elevation_step ? static_cast<float>(std::abs(*elevation_step / *azimuth_step)) : 1.0F;
  const float cell_width = kViewWidth / columns;
  const float height = std::clamp(std::round(rows * cell_width * aspect), 160.0F, 1000.0F);
  const float cell_height = height / rows;

  Canvas canvas(static_cast<int>(kLeft + kViewWidth + kRight), static_cast<int>(kTop + height + kBottom),
                kNight);
  canvas.Rectangle({kLeft, kTop}, {kLeft + kViewWidth, kTop + height}, kPanel);
  for (std::size_t row = 0; row < grid.rows.size(); ++row) {
    for (std::size_t column = 0; column < grid.rows[row].size(); ++column) {
      const PointTime& point = *grid.rows[row][column];
      if (IsValid(point)) {
        // Whole pixels, or the background would shine through the seams.
        const auto edge = [](float start, std::size_t index, float size) {
          return std::round(start + static_cast<float>(index) * size);
        };
        canvas.Rectangle({edge(kLeft, column, cell_width), edge(kTop, row, cell_height)},
                         {edge(kLeft, column + 1, cell_width), edge(kTop, row + 1, cell_height)},
                         scale.ColourOf(scale.Value(point)));
      }
    }
  }

  if (azimuth_step) {
    for (int angle = -180; angle <= 180; angle += 15) {
      const auto x = kLeft + static_cast<float>(grid.azimuth.PositionOf(angle)) * cell_width;
      if (x >= kLeft - 1.0F && x <= kLeft + kViewWidth + 1.0F) {
        canvas.Line({x, kTop + height + 2.0F}, {x, kTop + height + 8.0F}, 1.2F, kFaded);
        DrawText(canvas, {x, kTop + height + 24.0F}, Degrees(angle),
                 {.height = 10.0F, .colour = kFaded, .align = Align::kCentre});
      }
    }
  }
  if (elevation_step) {
    for (int angle = -90; angle <= 90; angle += height < 400.0F ? 5 : 15) {
      const auto y = kTop + static_cast<float>(grid.elevation.PositionOf(angle)) * cell_height;
      if (y >= kTop - 1.0F && y <= kTop + height + 1.0F) {
        canvas.Line({kLeft - 8.0F, y}, {kLeft - 2.0F, y}, 1.2F, kFaded);
        DrawText(canvas, {kLeft - 13.0F, y + 5.0F}, Degrees(angle),
                 {.height = 10.0F, .colour = kFaded, .align = Align::kRight});
      }
    }
  }
  DrawText(canvas, {kLeft + kViewWidth / 2.0F, kTop + height + 46.0F}, "azimuth (left positive)",
           {.height = 9.0F, .colour = kFaded, .align = Align::kCentre});
  DrawText(canvas, {20.0F, kTop - 14.0F}, "elevation", {.height = 9.0F, .colour = kFaded});
  DrawTitle(canvas, {kLeft, 24.0F}, caption, kViewWidth);
  DrawColourBar(canvas, {kLeft + kViewWidth + 24.0F, kTop + 24.0F},
                std::clamp(height - 24.0F, 100.0F, 420.0F), scale);
  return canvas;
}

}  // namespace orva
