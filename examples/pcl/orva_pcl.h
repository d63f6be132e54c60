// SPDX-License-Identifier: Apache-2.0
// Converts a finished ORVA cloud to PCL. Header only: copy it, or include it from here; PCL's own include
// directories are yours to set.
#ifndef ORVA_EXAMPLES_ORVA_PCL_H_
#define ORVA_EXAMPLES_ORVA_PCL_H_

#include <orva_driver.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>

#include <cmath>

namespace orva_pcl {

enum class Rejected {
  kDrop,  ///< leave them out; the result is dense
  kNan,   ///< keep the order of measurement, with NaN coordinates as PCL marks invalid points
};

/// Coordinates in metres, intensity the raw count. `stamp` is the frame time in microseconds, as PCL counts.
template <typename T>
pcl::PointCloud<pcl::PointXYZI> Convert(const PointCloud<T>& cloud, Rejected rejected = Rejected::kDrop) {
  pcl::PointCloud<pcl::PointXYZI> result;
  result.reserve(cloud.points.size());
  result.header.stamp = static_cast<std::uint64_t>(cloud.timestamp * 1e6);
  result.header.seq = cloud.seq;
  result.header.frame_id = cloud.frame_id;
  for (const T& point : cloud.points) {
    pcl::PointXYZI converted;
    converted.x = point.x;
    converted.y = point.y;
    converted.z = point.z;
    converted.intensity = static_cast<float>(point.intensity);
    if (point.x == 0.0F && point.y == 0.0F && point.z == 0.0F) {
      if (rejected == Rejected::kDrop) continue;
      converted.x = converted.y = converted.z = std::nanf("");
    }
    result.push_back(converted);
  }
  result.is_dense = rejected == Rejected::kDrop;
  return result;
}

}  // namespace orva_pcl

#endif  // ORVA_EXAMPLES_ORVA_PCL_H_
