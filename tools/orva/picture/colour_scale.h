// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_PICTURE_COLOUR_SCALE_H_
#define ORVA_TOOLS_PICTURE_COLOUR_SCALE_H_

#include <string>

#include "picture/canvas.h"
#include "shared/cloud.h"

namespace orva {

enum class ColourBy { kDistance, kIntensity };

/// Maps a quantity of the points to colours whose lightness runs evenly from one end to the other.
class ColourScale {
 public:
  /// Fits the range to the cloud: without the outermost 2 % on either side.
  ColourScale(ColourBy by, const Cloud& cloud);

  float Value(const PointTime& point) const;
  Colour ColourOf(float value) const;

  float low() const { return low_; }
  float high() const { return high_; }
  /// "distance, m" or "intensity, counts".
  std::string Caption() const;

 private:
  ColourBy by_;
  float low_ = 0.0F;
  float high_ = 1.0F;
};

/// The value below which `part` (0 to 1) of the valid points lie; 0 for a cloud without any.
float Quantile(const Cloud& cloud, float part, float (*value)(const PointTime&));

/// 1, 2 or 5 times a power of ten, so that `range` has about `count` steps.
float NiceStep(float range, int count);

}  // namespace orva

#endif  // ORVA_TOOLS_PICTURE_COLOUR_SCALE_H_
