// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_PICTURE_STROKE_FONT_H_
#define ORVA_TOOLS_PICTURE_STROKE_FONT_H_

#include <string_view>

#include "picture/canvas.h"

namespace orva {

enum class Align { kLeft, kCentre, kRight };

/// Lettering for ASCII, the degree sign and the middle dot (UTF-8); anything else becomes a box.
struct TextStyle {
  float height = 12.0F;  ///< of a capital letter, pixels
  Colour colour = {1.0F, 1.0F, 1.0F};
  Align align = Align::kLeft;
  float weight = 1.0F;  ///< stroke thickness relative to the regular one
};

/// Pixels from the first letter's left edge to the last one's right edge.
float TextWidth(std::string_view text, float height);

/// `baseline` is the left end, centre or right end of the line that letters stand on, as aligned.
void DrawText(Canvas& canvas, Spot baseline, std::string_view text, const TextStyle& style);

}  // namespace orva

#endif  // ORVA_TOOLS_PICTURE_STROKE_FONT_H_
