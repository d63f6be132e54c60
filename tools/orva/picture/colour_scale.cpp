// SPDX-License-Identifier: Apache-2.0
#include "picture/colour_scale.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace orva {
namespace {

constexpr float kRadians = 3.14159265F / 180.0F;

float Gamma(float linear) {
  const float value = std::clamp(linear, 0.0F, 1.0F);
  return value <= 0.0031308F ? 12.92F * value : 1.055F * std::pow(value, 1.0F / 2.4F) - 0.055F;
}

/// Lightness 0 to 1, chroma and hue in degrees of the OKLab colour space, to sRGB.
Colour FromLightness(float lightness, float chroma, float hue) {
  const float a = chroma * std::cos(hue * kRadians);
  const float b = chroma * std::sin(hue * kRadians);
  const float l = std::pow(lightness + 0.3963377774F * a + 0.2158037573F * b, 3.0F);
  const float m = std::pow(lightness - 0.1055613458F * a - 0.0638541728F * b, 3.0F);
  const float s = std::pow(lightness - 0.0894841775F * a - 1.2914855480F * b, 3.0F);
  return {Gamma(4.0767416621F * l - 3.3077115913F * m + 0.2309699292F * s),
          Gamma(-1.2684380046F * l + 2.6097574011F * m - 0.3413193965F * s),
          Gamma(-0.0041960863F * l - 0.7034186147F * m + 1.7076147010F * s)};
}

float Mix(float from, float to, float part) {
  return from + (to - from) * part;
}

float IntensityOf(const PointTime& point) {
  return point.intensity;
}

}  // namespace

ColourScale::ColourScale(ColourBy by, const Cloud& cloud) : by_(by) {
  if (by == ColourBy::kDistance) {
    const float far = Quantile(cloud, 0.98F, Distance);
    const float step = NiceStep(far, 6);
    low_ = std::floor(Quantile(cloud, 0.02F, Distance));
    high_ = std::max(low_ + 1.0F, std::ceil(far / step) * step);
  } else {
    low_ = Quantile(cloud, 0.02F, IntensityOf);
    high_ = std::max(low_ + 1.0F, Quantile(cloud, 0.98F, IntensityOf));
  }
}

float ColourScale::Value(const PointTime& point) const {
  return by_ == ColourBy::kDistance ? Distance(point) : IntensityOf(point);
}

Colour ColourScale::ColourOf(float value) const {
  // Most points are near and weak: the root gives them more of the colours.
  const float part = std::sqrt(std::clamp((value - low_) / (high_ - low_), 0.0F, 1.0F));
  if (by_ == ColourBy::kDistance) {  // near: light and warm, far: deep blue that still stands out of the dark
    return FromLightness(Mix(0.93F, 0.42F, part), Mix(0.15F, 0.16F, part), Mix(100.0F, 275.0F, part));
  }
  // From violet over orange to pale yellow.
  return FromLightness(Mix(0.40F, 0.96F, part), 0.17F - 0.09F * part * part, Mix(290.0F, 460.0F, part));
}

std::string ColourScale::Caption() const {
  return by_ == ColourBy::kDistance ? "distance, m" : "intensity, counts";
}

float Quantile(const Cloud& cloud, float part, float (*value)(const PointTime&)) {
  std::vector<float> values;
  for (const PointTime& point : cloud.points) {
    if (IsValid(point) && std::isfinite(value(point))) {
      values.push_back(value(point));
    }
  }
  if (values.empty()) {
    return 0.0F;
  }
  const auto place =
      values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<float>(values.size() - 1));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

float NiceStep(float range, int count) {
  const float raw = std::max(range, 1e-3F) / static_cast<float>(count);
  const float power = std::pow(10.0F, std::floor(std::log10(raw)));
  const float lead = raw / power;
  return power * (lead < 1.5F ? 1.0F : lead < 3.5F ? 2.0F : lead < 7.5F ? 5.0F : 10.0F);
}

}  // namespace orva
