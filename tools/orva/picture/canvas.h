// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_PICTURE_CANVAS_H_
#define ORVA_TOOLS_PICTURE_CANVAS_H_

#include <cstdint>
#include <vector>

namespace orva {

/// sRGB, 0 to 1 each.
struct Colour {
  float r = 0.0F;
  float g = 0.0F;
  float b = 0.0F;
};

/// Pixels; x to the right, y down, the centre of the first pixel at (0.5, 0.5).
struct Spot {
  float x = 0.0F;
  float y = 0.0F;
};

/// An RGB image with the few anti-aliased shapes that the pictures need. Shapes may reach over its edges.
class Canvas {
 public:
  Canvas(int width, int height, Colour background);

  int width() const { return width_; }
  int height() const { return height_; }

  void Rectangle(Spot corner, Spot opposite, Colour colour, float alpha = 1.0F);
  void Disc(Spot centre, float radius, Colour colour, float alpha = 1.0F);
  /// With round ends.
  void Line(Spot from, Spot to, float thickness, Colour colour, float alpha = 1.0F);

  /// Shapes change pixels inside this rectangle only, until the next call.
  void Clip(Spot corner, Spot opposite);
  void ClipNothing();

  /// Row by row, three bytes a pixel.
  std::vector<std::uint8_t> Bytes() const;

 private:
  void Blend(int x, int y, Colour colour, float alpha);

  int width_;
  int height_;
  int clip_left_ = 0;
  int clip_top_ = 0;
  int clip_right_;
  int clip_bottom_;
  std::vector<Colour> pixels_;
};

}  // namespace orva

#endif  // ORVA_TOOLS_PICTURE_CANVAS_H_
