// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstring>

#include "orva_driver.h"

namespace tevoro::lidar {

/// Does the cloud take its points by the PushPoint of the base class? Told by the first entry of its virtual
/// table: an application that is built without run-time type information has no type to ask for.
template <typename T>
bool HasOwnPushPoint(const PointCloud<T>& cloud) {
  const auto push_point = [](const PointCloud<T>& object) {
    const void* const* table;
    std::memcpy(&table, &object, sizeof(table));
    return *table;
  };
  static const void* const base = push_point(PointCloud<T>());
  return push_point(cloud) != base;
}

/// Appends a packet's points to the frame in the making.
template <typename PC>
class PointAppender {
 public:
  using PointType = typename PC::PointType;

  /// Appends the points from number `start` on of the `N` that `set(PointType* points)` sets, all fields
  /// but those that keep their default: in place where the cloud takes them as the base class does, else
  /// through its virtual PushPoint.
  template <size_t N, typename Set>
  void Append(PC& cloud, size_t start, const Set& set) {
    if (HasOwnPushPoint(cloud)) {
      PointType points[N];
      set(points);
      for (size_t i = start; i < N; ++i) cloud.PushPoint(points[i]);
      return;
    }
    const size_t before = cloud.points.size();
    // Frames of a sensor are of one size: a fresh cloud need not grow step by step.
    if (before == 0) cloud.points.reserve(last_size_);
    if (start == 0) {
      cloud.points.resize(before + N);
      set(cloud.points.data() + before);
    } else {
      PointType points[N];
      set(points);
      cloud.points.insert(cloud.points.end(), points + start, points + N);
    }
    last_size_ = cloud.points.size();
  }

 private:
  size_t last_size_ = 0;  ///< of the cloud that was appended to last
};

}  // namespace tevoro::lidar
