// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
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
    std::memcpy(&table, static_cast<const void*>(&object), sizeof(table));
    return *table;
  };
  static const void* const base = push_point(PointCloud<T>());
  return push_point(cloud) != base;
}

/// Appends packets of `N` points to the frame in the making.
template <typename PC, size_t N>
class PointAppender {
 public:
  using PointType = typename PC::PointType;

  /// Appends the points from number `start` on of the `N` that `set(PointType* points)` sets, all fields but
  /// those that keep their default: in place where the cloud takes them as the base class does, else through
  /// its virtual PushPoint.
  template <typename Set>
  void Append(PC& cloud, size_t start, const Set& set) {
    const bool push = HasOwnPushPoint(cloud);
    const size_t before = cloud.points.size();
    // Frames of a sensor are of one size: a fresh cloud need not grow step by step.
    if (before == 0 && !push) cloud.points.reserve(last_size_);
    if (start == 0 && !push) {
      cloud.points.resize(before + N);
      set(cloud.points.data() + before);
    } else {
      std::array<PointType, N> points;
      set(points.data());
      for (size_t i = start; i < N; ++i) cloud.PushPoint(points[i]);
    }
    last_size_ = cloud.points.size();
  }

 private:
  size_t last_size_ = 0;  ///< of the cloud that was appended to last
};

}  // namespace tevoro::lidar
