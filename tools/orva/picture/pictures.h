// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_PICTURE_PICTURES_H_
#define ORVA_TOOLS_PICTURE_PICTURES_H_

#include <filesystem>
#include <string>

#include "picture/canvas.h"
#include "picture/colour_scale.h"
#include "shared/cloud.h"

namespace orva {

/// What a picture says about its cloud.
struct Caption {
  std::string title;     ///< such as "TS4B, frame 3"
  std::string subtitle;  ///< smaller, below
};

/// Seen from above, x upwards and y to the left, with range rings. `range` is the radius shown in metres;
/// 0 fits it to the cloud.
Canvas DrawBirdsEye(const Cloud& cloud, const ColourScale& scale, const Caption& caption, float range);

/// Seen from the sensor: a row per laser line, its measurements in order, left to right. Measurements without
/// a return are dark. The axes are the angles that the valid points have.
Canvas DrawRangeImage(const Cloud& cloud, const ColourScale& scale, const Caption& caption);

/// Throws Failure. The file appears complete or not at all.
void WritePng(const Canvas& canvas, const std::filesystem::path& path);

}  // namespace orva

#endif  // ORVA_TOOLS_PICTURE_PICTURES_H_
