// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <typeinfo>

#include "decoder/angles.h"
#include "decoder/mounting.h"
#include "orva_driver.h"

namespace tevoro::lidar {

/// The measurements of one packet on their way to points, one array per quantity, so that each stage is a
/// plain loop which the compiler turns into wide instructions.
template <size_t N>
struct Projection {
  float distance[N];  ///< metres, final
  float cos_azimuth[N];
  float sin_azimuth[N];
  float cos_elevation[N];
  float sin_elevation[N];
  uint32_t keep[N];  ///< 0: the point becomes (0, 0, 0)
  float x[N];
  float y[N];
  float z[N];

  /// Distances and directions to coordinates: mounted where asked for, rejected points last.
  void Run(const Mounting& mounting, const DecoderParam& limits) {
    for (size_t i = 0; i < N; ++i) {
      const float r = distance[i] * cos_elevation[i];
      x[i] = std::fabs(cos_azimuth[i] * r);  // the sensor looks forward
      y[i] = sin_azimuth[i] * std::fabs(r);
      z[i] = distance[i] * sin_elevation[i];
    }
    if (mounting.Enabled()) {
      for (size_t i = 0; i < N; ++i) mounting.Apply(x[i], y[i], z[i]);
    }
    const float nearest = limits.min_distance;
    const float farthest = limits.max_distance;
    for (size_t i = 0; i < N; ++i) {
      const bool inside = (keep[i] != 0) & (nearest <= distance[i]) & (distance[i] <= farthest);
      x[i] = inside ? x[i] : 0.0F;
      y[i] = inside ? y[i] : 0.0F;
      z[i] = inside ? z[i] : 0.0F;
    }
  }
};

/// Appends points to a cloud: in one go to the library's own kind, through the virtual PushPoint to a
/// derived one.
template <typename T>
void AppendPoints(PointCloud<T>& cloud, const T* first, const T* last) {
  if (typeid(cloud) == typeid(PointCloud<T>)) {
    cloud.points.insert(cloud.points.end(), first, last);
  } else {
    for (; first != last; ++first) cloud.PushPoint(*first);
  }
}

}  // namespace tevoro::lidar
