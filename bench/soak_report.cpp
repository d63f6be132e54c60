// SPDX-License-Identifier: Apache-2.0
#include "soak_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "picture/decoration.h"
#include "picture/pictures.h"
#include "picture/stroke_font.h"

namespace orva::soak {

Trend LastHalf(const std::vector<Sample>& samples, const Quantity& quantity) {
  const size_t begin = samples.size() / 2, count = samples.size() - begin;
  Trend trend;
  if (count < 3) return trend;
  double middle = 0.0;
  for (size_t i = begin; i < samples.size(); ++i) {
    middle += samples[i].seconds / static_cast<double>(count);
    trend.mean += samples[i].*quantity.value / static_cast<double>(count);
  }
  double along = 0.0, spread = 0.0;
  for (size_t i = begin; i < samples.size(); ++i) {
    const double t = samples[i].seconds - middle;
    along += t * (samples[i].*quantity.value - trend.mean);
    spread += t * t;
  }
  const double slope = along / spread;
  double squares = 0.0;
  for (size_t i = begin; i < samples.size(); ++i) {
    const double rest = samples[i].*quantity.value - trend.mean - slope * (samples[i].seconds - middle);
    squares += rest * rest;
  }
  trend.growth = slope * (samples.back().seconds - samples[begin].seconds);
  trend.noise = std::sqrt(squares / static_cast<double>(count - 2));
  trend.flat = trend.growth <= std::clamp(8.0 * trend.noise, quantity.floor, quantity.ceiling);
  return trend;
}

CsvFile::CsvFile(const std::string& path) : file_(path) {
  file_ << "seconds,resident_mib,descriptors,threads,cpu_cores,received,decoded,refused,discarded,"
           "kernel_dropped,frames,replayed_frames"
        << std::endl;
}

void CsvFile::Add(const Sample& s) {
  file_ << s.seconds << ',' << s.resident << ',' << s.descriptors << ',' << s.threads << ',' << s.cpu << ','
        << s.received << ',' << s.decoded << ',' << s.refused << ',' << s.discarded << ',' << s.kernel_dropped
        << ',' << s.frames << ',' << s.replayed << std::endl;
}

void DrawPlot(const std::vector<Sample>& samples, const std::string& path) {
  constexpr int kWidth = 1000, kRow = 150;
  constexpr float kLeft = 30.0F, kRight = 970.0F;
  Canvas canvas(kWidth, 60 + kRow * static_cast<int>(std::size(kQuantities)), kNight);
  DrawTitle(canvas, {kLeft, 14.0F},
            {"Soak: TS4B live and a replay in a loop", Short(static_cast<float>(samples.size())) + " s"},
            kRight - kLeft);
  const double end = std::max(1.0, samples.back().seconds);
  float top = 84.0F;
  for (const Quantity& quantity : kQuantities) {
    const float bottom = top + kRow - 40.0F;
    double greatest = 0.0;
    for (const Sample& sample : samples) greatest = std::max(greatest, sample.*quantity.value);
    const double scale = std::max(greatest * 1.1, 1e-9);
    const auto at = [&](const Sample& sample) {
      return Spot{kLeft + (kRight - kLeft) * static_cast<float>(sample.seconds / end),
                  bottom - (bottom - top) * static_cast<float>(sample.*quantity.value / scale)};
    };
    canvas.Rectangle({kLeft, top}, {kRight, bottom}, kPanel);
    const float half = (kLeft + kRight) / 2.0F;
    canvas.Line({half, top}, {half, bottom}, 1.0F, kGrid);  // from here on flatness is judged
    for (size_t i = 1; i < samples.size(); ++i) {
      canvas.Line(at(samples[i - 1]), at(samples[i]), 1.5F, kAccent);
    }
    std::array<char, 120> text;
    std::snprintf(text.data(), text.size(), "%s: at most %.4g, at the end %.4g", quantity.name, greatest,
                  samples.back().*quantity.value);
    DrawText(canvas, {kLeft, top - 6.0F}, text.data(), {.height = 10.0F, .colour = kInk});
    top += kRow;
  }
  WritePng(canvas, path);
}

}  // namespace orva::soak
