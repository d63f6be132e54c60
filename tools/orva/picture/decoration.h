// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_PICTURE_DECORATION_H_
#define ORVA_TOOLS_PICTURE_DECORATION_H_

#include <string>

#include "picture/canvas.h"
#include "picture/colour_scale.h"
#include "picture/pictures.h"

namespace orva {

constexpr Colour kNight = {0.045F, 0.055F, 0.075F};  ///< the pictures' background
constexpr Colour kPanel = {0.070F, 0.085F, 0.115F};  ///< behind the points
constexpr Colour kGrid = {0.36F, 0.44F, 0.54F};      ///< rings and ticks
constexpr Colour kInk = {0.93F, 0.95F, 0.97F};       ///< titles
constexpr Colour kFaded = {0.62F, 0.68F, 0.75F};     ///< labels
constexpr Colour kAccent = {0.30F, 0.85F, 0.78F};    ///< the sensor

/// A number without needless digits: "20", "0.5".
std::string Short(float number);

/// Rounded down to the part that fits `width` pixels, with "..." in its place.
void DrawTitle(Canvas& canvas, Spot corner, const Caption& caption, float width);

/// A vertical bar of 16 pixels with numbers to its right and its caption above.
void DrawColourBar(Canvas& canvas, Spot corner, float height, const ColourScale& scale);

}  // namespace orva

#endif  // ORVA_TOOLS_PICTURE_DECORATION_H_
