// SPDX-License-Identifier: Apache-2.0
#include "picture/decoration.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "picture/stroke_font.h"

namespace orva {
namespace {

constexpr float kTitleHeight = 17.0F;
constexpr float kSubtitleHeight = 10.0F;

std::string Fit(std::string text, float height, float width) {
  if (TextWidth(text, height) <= width) {
    return text;
  }
  while (!text.empty() && TextWidth(text + "...", height) > width) {
    text.pop_back();
  }
  return text + "...";
}

}  // namespace

std::string Short(float number) {
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%.4g", static_cast<double>(number));
  return text.data();
}

void DrawTitle(Canvas& canvas, Spot corner, const Caption& caption, float width) {
  DrawText(canvas, {corner.x, corner.y + kTitleHeight}, Fit(caption.title, kTitleHeight, width),
           {.height = kTitleHeight, .colour = kInk, .weight = 1.1F});
  DrawText(canvas, {corner.x, corner.y + kTitleHeight + 12.0F + kSubtitleHeight},
           Fit(caption.subtitle, kSubtitleHeight, width), {.height = kSubtitleHeight, .colour = kFaded});
}

void DrawColourBar(Canvas& canvas, Spot corner, float height, const ColourScale& scale) {
  constexpr float kWidth = 16.0F;
  const float range = scale.high() - scale.low();
  for (float y = 0.0F; y < height; y += 1.0F) {
    const float value = scale.high() - range * y / height;
    canvas.Rectangle({corner.x, corner.y + y}, {corner.x + kWidth, corner.y + std::fmin(y + 1.0F, height)},
                     scale.ColourOf(value));
  }
  const float step = NiceStep(range, 6);
  for (float value = std::ceil(scale.low() / step) * step; value <= scale.high() + step * 1e-3F;
       value += step) {
    const float y = corner.y + height * (scale.high() - value) / range;
    canvas.Line({corner.x + kWidth, y}, {corner.x + kWidth + 5.0F, y}, 1.2F, kFaded);
    DrawText(canvas, {corner.x + kWidth + 10.0F, y + 5.0F}, Short(value),
             {.height = 10.0F, .colour = kFaded});
  }
  DrawText(canvas, {corner.x, corner.y - 12.0F}, scale.Caption(), {.height = 9.0F, .colour = kFaded});
}

}  // namespace orva
