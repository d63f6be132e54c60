// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "decoder/angles.h"
#include "decoder/lanes.h"
#include "decoder/mounting.h"
#include "orva_driver.h"

namespace tevoro::lidar {

/// Where a laser points: sines and cosines from the table.
struct Direction {
  float cos_azimuth;
  float sin_azimuth;
  float cos_elevation;
  float sin_elevation;
};

/// All bits set where `condition` holds. Masks keep branches out of the loops.
inline uint32_t Mask(bool condition) {
  return 0U - uint32_t{condition};
}

/// `value` where the mask is set, else 0.
inline float Select(uint32_t mask, float value) {
  return std::bit_cast<float>(std::bit_cast<uint32_t>(value) & mask);
}

/// `value` where the mask is set, else NaN.
inline float NanUnless(uint32_t mask, float value) {
  return std::bit_cast<float>(std::bit_cast<uint32_t>(value) | ~mask);
}

/// Coordinates of a packet's points, one array per axis: so the loop that computes them becomes wide
/// instructions.
template <size_t N>
struct Coordinates {
  float x[N];
  float y[N];
  float z[N];

  /// From final distances in metres and `direction(i)`: mounted where asked for, and (0, 0, 0) where
  /// `keep(i)` is false or the distance is out of limits.
  template <typename DirectionOf, typename Keep>
  void Project(const float (&distance)[N], const DirectionOf& direction, const Keep& keep,
               const Mounting& mounting, const DecoderParam& limits) {
    const float nearest = limits.min_distance;
    const float farthest = limits.max_distance;
    const auto project = [&](const auto& mount) {
      for (size_t i = 0; i < N; ++i) {
        const auto& to = direction(i);
        const float d = distance[i];
        const float r = d * to.cos_elevation;
        float px = std::fabs(to.cos_azimuth * r);  // the sensor looks forward
        float py = to.sin_azimuth * std::fabs(r);
        float pz = d * to.sin_elevation;
        mount(px, py, pz);
        const uint32_t inside = keep(i) & Mask(nearest <= d) & Mask(d <= farthest);
        x[i] = Select(inside, px);
        y[i] = Select(inside, py);
        z[i] = Select(inside, pz);
      }
    };
    if (mounting.Enabled()) {
      project([pose = mounting](float& px, float& py, float& pz) { pose.Transform(px, py, pz); });
    } else {
      project([](float&, float&, float&) {});
    }
  }
};

/// Intensity (its low 16 bits) and label in one word, as they stand side by side in a point.
inline uint32_t Echo(uint32_t intensity, uint32_t label) {
  return (intensity & 0xFFFF) | label << 16;
}

struct NothingElse {
  template <typename T>
  void operator()(T&, size_t) const {}
};

/// Sets coordinates, intensity and label of the `N` points from `points` on, and lets `finish(point, i)` add
/// what the cloud's kind of point has besides; four points at a time: compilers do not find this
/// transposition by themselves.
template <typename T, size_t N, typename Finish = NothingElse>
void SetPoints(const Coordinates<N>& at, const uint32_t (&echo)[N], T* points, const Finish& finish = {}) {
  static_assert(std::is_trivially_copyable_v<T> && N % kLanes == 0);
  static_assert(offsetof(T, x) == 0 && offsetof(T, y) == 4 && offsetof(T, z) == 8);
  static_assert(offsetof(T, intensity) == 12 && offsetof(T, label) == 14);
  for (size_t i = 0; i < N; i += kLanes) {
    Lanes four[kLanes] = {LoadLanes(at.x + i), LoadLanes(at.y + i), LoadLanes(at.z + i), LoadLanes(echo + i)};
    Transpose(four);
    for (size_t k = 0; k < kLanes; ++k) {
      StoreLanes(four[k], points + i + k);
      finish(points[i + k], i + k);
    }
  }
}

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

/// Appends the points from number `start` on of the `N` that `set(T* points)` sets: in place where the cloud
/// takes them as the base class does, else through its virtual PushPoint.
template <size_t N, typename T, typename Set>
void AppendPoints(PointCloud<T>& cloud, size_t start, const Set& set) {
  const bool in_place = !HasOwnPushPoint(cloud);
  if (in_place && start == 0) {
    const size_t before = cloud.points.size();
    cloud.points.resize(before + N);
    set(cloud.points.data() + before);
    return;
  }
  T points[N];
  set(points);
  if (in_place) {
    cloud.points.insert(cloud.points.end(), points + start, points + N);
  } else {
    for (size_t i = start; i < N; ++i) cloud.PushPoint(points[i]);
  }
}

}  // namespace tevoro::lidar
