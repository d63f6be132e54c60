// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_CLOUD_H_
#define ORVA_TOOLS_SHARED_CLOUD_H_

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "orva_driver.h"

namespace orva {

/// The cloud type of every command: the smallest that carries all that the files and pictures show.
using Cloud = PointCloud<PointTime>;

/// False for a measurement without a return inside the limits: the driver keeps it as the exact origin.
inline bool IsValid(const PointTime& point) {
  return point.x != 0.0F || point.y != 0.0F || point.z != 0.0F;
}

inline std::size_t CountValid(const Cloud& cloud) {
  return static_cast<std::size_t>(std::count_if(cloud.points.begin(), cloud.points.end(), IsValid));
}

/// Metres from the origin.
inline float Distance(const PointTime& point) {
  return std::sqrt(point.x * point.x + point.y * point.y + point.z * point.z);
}

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_CLOUD_H_
