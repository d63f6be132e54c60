// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <vector>

#include "picture/decoration.h"
#include "picture/pictures.h"
#include "picture/stroke_font.h"

namespace orva {
namespace {

constexpr float kRadians = 3.14159265F / 180.0F;
constexpr float kLeft = 32.0F;  // margins around the view, pixels
constexpr float kRight = 152.0F;
constexpr float kTop = 84.0F;
constexpr float kBottom = 32.0F;
constexpr float kViewWidth = 1230.0F;
constexpr float kMostViewHeight = 1100.0F;

float GroundDistance(const PointTime& point) {
  return std::hypot(point.x, point.y);
}

float Bearing(const PointTime& point) {
  return std::abs(std::atan2(point.y, point.x));
}

/// Which part of the ground is shown, and where.
struct View {
  float range;       ///< metres, the outermost ring
  float half_angle;  ///< radians to either side of straight ahead that hold points
  float side;        ///< metres shown to the left and to the right
  float behind;      ///< metres shown behind the sensor
  float scale;       ///< pixels per metre
  float width;
  float height;

  Spot At(float x, float y) const {
    return {kLeft + width / 2.0F - y * scale, kTop + height - (x + behind) * scale};
  }
};

View Fit(const Cloud& cloud, float range) {
  View view = {};
  view.range = range;
  if (!(range > 0.0F)) {
    const float far = Quantile(cloud, 0.97F, GroundDistance);
    const float step = NiceStep(far, 8);
    view.range = std::max(1.0F, std::ceil(far / step) * step);
  }
  const float bearing = Quantile(cloud, 0.999F, Bearing);
  view.half_angle = std::clamp(bearing, 30.0F * kRadians, 180.0F * kRadians);
  const bool all_around = view.half_angle > 95.0F * kRadians;
  view.side =
      view.range * (all_around ? 1.0F : std::sin(std::min(view.half_angle, 90.0F * kRadians))) * 1.02F;
  view.behind = view.range * (all_around ? 1.02F : 0.06F);
  const float ahead = view.range * 1.05F;
  view.width = kViewWidth;
  view.scale = std::min(view.width / (2.0F * view.side), kMostViewHeight / (ahead + view.behind));
  view.height = std::round((ahead + view.behind) * view.scale);
  return view;
}

void DrawArc(Canvas& canvas, const View& view, float radius) {
  Spot last = view.At(radius, 0.0F);
  const float end = std::min(view.half_angle, 180.0F * kRadians);
  for (const float side : {1.0F, -1.0F}) {
    last = view.At(radius, 0.0F);
    for (float angle = kRadians; angle < end + 0.5F * kRadians; angle += kRadians) {
      const Spot next = view.At(radius * std::cos(angle), side * radius * std::sin(angle));
      canvas.Line(last, next, 1.0F, kGrid, 0.55F);
      last = next;
    }
  }
}

void DrawGrid(Canvas& canvas, const View& view) {
  const float step = NiceStep(view.range, 6);
  for (float radius = step; radius <= view.range * 1.001F; radius += step) {
    DrawArc(canvas, view, radius);
  }
  const int spokes = static_cast<int>(view.half_angle / kRadians + 1.0F) / 30;
  for (int spoke = -spokes; spoke <= spokes; ++spoke) {
    const float angle = static_cast<float>(spoke) * 30.0F * kRadians;
    canvas.Line(view.At(0.0F, 0.0F), view.At(view.range * std::cos(angle), view.range * std::sin(angle)),
                1.0F, kGrid, spoke == 0 ? 0.55F : 0.35F);
  }
}

/// Above the points, or they would hide them.
void DrawRingLabels(Canvas& canvas, const View& view) {
  const float step = NiceStep(view.range, 6);
  for (float radius = step; radius <= view.range * 1.001F; radius += step) {
    const std::string label = Short(radius) + " m";
    const Spot spot = view.At(radius, 0.0F);
    const float width = TextWidth(label, 10.0F);
    canvas.Rectangle({spot.x + 5.0F, spot.y - 9.0F}, {spot.x + width + 13.0F, spot.y + 9.0F}, kNight, 0.7F);
    DrawText(canvas, {spot.x + 9.0F, spot.y + 5.0F}, label, {.height = 10.0F, .colour = kInk});
  }
}

void DrawSensor(Canvas& canvas, const View& view) {
  const Spot origin = view.At(0.0F, 0.0F);
  canvas.Disc(origin, 13.0F, kAccent, 0.25F);
  canvas.Disc(origin, 6.5F, kAccent);
  canvas.Disc(origin, 3.0F, kNight);
  DrawText(canvas, {origin.x + 18.0F, origin.y + 5.0F}, "sensor", {.height = 10.0F, .colour = kAccent});
}

void DrawScaleBar(Canvas& canvas, const View& view) {
  const float metres = NiceStep(view.range, 6);
  const Spot left = {kLeft + 18.0F, kTop + view.height - 18.0F};
  const Spot right = {left.x + metres * view.scale, left.y};
  canvas.Line(left, right, 2.0F, kInk);
  for (const Spot& end : {left, right}) {
    canvas.Line({end.x, end.y - 5.0F}, {end.x, end.y + 5.0F}, 2.0F, kInk);
  }
  DrawText(canvas, {(left.x + right.x) / 2.0F, left.y - 9.0F}, Short(metres) + " m",
           {.height = 10.0F, .colour = kInk, .align = Align::kCentre});
}

}  // namespace

Canvas DrawBirdsEye(const Cloud& cloud, const ColourScale& scale, const Caption& caption, float range) {
  const View view = Fit(cloud, range);
  Canvas canvas(static_cast<int>(kLeft + view.width + kRight), static_cast<int>(kTop + view.height + kBottom),
                kNight);
  canvas.Clip({kLeft, kTop}, {kLeft + view.width, kTop + view.height});
  canvas.Rectangle({kLeft, kTop}, {kLeft + view.width, kTop + view.height}, kPanel);
  DrawGrid(canvas, view);

  std::vector<PointTime> points;
  std::copy_if(
      cloud.points.begin(), cloud.points.end(), std::back_inserter(points),
      [](const PointTime& point) { return IsValid(point) && std::isfinite(point.x + point.y + point.z); });
  // What is higher covers what is below, as seen from above.
  std::sort(points.begin(), points.end(), [](const PointTime& a, const PointTime& b) { return a.z < b.z; });
  for (const PointTime& point : points) {
    const Spot spot = view.At(point.x, point.y);
    if (std::abs(spot.x) < 1e4F && std::abs(spot.y) < 1e4F) {
      canvas.Disc(spot, 1.6F, scale.ColourOf(scale.Value(point)), 0.9F);
    }
  }
  DrawRingLabels(canvas, view);
  DrawSensor(canvas, view);
  DrawScaleBar(canvas, view);
  canvas.ClipNothing();
  DrawTitle(canvas, {kLeft, 24.0F}, caption, view.width);
  DrawColourBar(canvas, {kLeft + view.width + 24.0F, kTop + 24.0F}, std::min(view.height - 40.0F, 420.0F),
                scale);
  return canvas;
}

}  // namespace orva
