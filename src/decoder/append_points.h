// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <typeinfo>

#include "decoder/packet_loops.h"
#include "orva_driver.h"

namespace tevoro::lidar {

/// The virtual table of a cloud, by the C++ ABI of this library's platforms: entry 0 is PushPoint, entry -1
/// the dynamic type, null where the application is built without run-time type information.
template <typename T>
const void* const* VirtualTable(const PointCloud<T>& cloud) {
  const void* const* table;
  std::memcpy(&table, static_cast<const void*>(&cloud), sizeof(table));
  return table;
}

/// Does the cloud take its points by the PushPoint of the base class? Out of line: asked once for each class.
template <typename T>
[[gnu::noinline]] bool TakesPointsLikeBase(const void* const* table) {
  // Types are compared by name: a module loaded by itself, such as Python's, has a base class of its own.
  if (const auto* type = static_cast<const std::type_info*>(table[-1])) return *type == typeid(PointCloud<T>);
  // Volatile, for the compiler would otherwise take the library's own table without asking for the
  // application's, which stands in for it.
  static const PointCloud<T> base;
  const PointCloud<T>* const volatile unknown = &base;
  return table[0] == VirtualTable(*unknown)[0];
}

/// Appends packets of `N` points to the frame in the making.
template <typename PC, size_t N>
class PointAppender {
 public:
  using PointType = typename PC::PointType;

  /// Appends the points from number `start` on of the `N` that `set(PointType* points)` sets, all fields but
  /// those that keep their default: as the base class does where the cloud leaves it to that, else through
  /// its virtual PushPoint. They are set aside first, for a vector that makes room in place sets it to zero
  /// point by point, which costs more than this copy.
  template <typename Set>
  void Append(PC& cloud, size_t start, const Set& set) {
    if (const auto* table = VirtualTable(cloud); table != table_) {
      push_ = !TakesPointsLikeBase<PointType>(table);
      table_ = table;
    }
    set(packet_.data());
    const auto first = packet_.begin() + static_cast<ptrdiff_t>(start);
    if (push_) {
      for (auto point = first; point != packet_.end(); ++point) cloud.PushPoint(*point);
    } else {
      // Frames of a sensor are of one size: a fresh cloud need not grow step by step.
      if (cloud.points.empty()) cloud.points.reserve(last_size_);
      cloud.points.insert(cloud.points.end(), first, packet_.end());
    }
    last_size_ = cloud.points.size();
  }

 private:
  alignas(kCacheLine) std::array<PointType, N> packet_;
  size_t last_size_ = 0;                ///< of the cloud that was appended to last
  const void* const* table_ = nullptr;  ///< its virtual table
  bool push_ = true;
};

}  // namespace tevoro::lidar
