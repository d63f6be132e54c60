// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>
#include <typeinfo>

#include "decoder/angles.h"
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

/// `value` where `inside`, else 0. Masks the bits, which keeps branches out of the loops.
inline float Select(bool inside, float value) {
  return std::bit_cast<float>(std::bit_cast<uint32_t>(value) & (0U - uint32_t{inside}));
}

/// `value` where `valid`, else NaN.
inline float NanUnless(bool valid, float value) {
  return std::bit_cast<float>(std::bit_cast<uint32_t>(value) | (uint32_t{valid} - 1U));
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
        const bool inside = keep(i) & (nearest <= d) & (d <= farthest);
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

/// What a point carries besides its coordinates; side by side, as the point keeps them.
struct Echo {
  uint16_t intensity;
  uint16_t line;
};

/// Turns four arrays' worth of one quantity each into four points' worth of all: a 4x4 transposition, in the
/// compiler's own portable vectors, since it finds no such loop by itself.
class Interleaver {
 public:
  static constexpr size_t kPoints = 4;
  static constexpr size_t kBytes = 16;  ///< of a point

  /// From four values each of x, y, z and a 32-bit last part.
  Interleaver(const float* x, const float* y, const float* z, const void* last) {
    const Lanes xs = Load(x);
    const Lanes ys = Load(y);
    const Lanes zs = Load(z);
    const Lanes ls = Load(last);
    const Lanes xy01 = __builtin_shufflevector(xs, ys, 0, 4, 1, 5);
    const Lanes xy23 = __builtin_shufflevector(xs, ys, 2, 6, 3, 7);
    const Lanes zl01 = __builtin_shufflevector(zs, ls, 0, 4, 1, 5);
    const Lanes zl23 = __builtin_shufflevector(zs, ls, 2, 6, 3, 7);
    points_[0] = __builtin_shufflevector(xy01, zl01, 0, 1, 4, 5);
    points_[1] = __builtin_shufflevector(xy01, zl01, 2, 3, 6, 7);
    points_[2] = __builtin_shufflevector(xy23, zl23, 0, 1, 4, 5);
    points_[3] = __builtin_shufflevector(xy23, zl23, 2, 3, 6, 7);
  }

  /// Writes point `i` of the four.
  void Store(size_t i, void* point) const { std::memcpy(point, &points_[i], kBytes); }

 private:
  using Lanes = uint32_t __attribute__((vector_size(kBytes)));

  static Lanes Load(const void* values) {
    Lanes lanes;
    std::memcpy(&lanes, values, kBytes);
    return lanes;
  }

  Lanes points_[kPoints];
};

/// The points of one packet. Holds none at first: a point is written once, not zeroed before.
template <typename T, size_t N>
class PointBuffer {
 public:
  static_assert(std::is_trivially_copyable_v<T> && std::is_standard_layout_v<T> &&
                N % Interleaver::kPoints == 0);
  static_assert(offsetof(T, x) == 0 && offsetof(T, y) == 4 && offsetof(T, z) == 8 &&
                offsetof(T, intensity) == 12 && offsetof(T, label) == 14);

  /// Sets all points; `finish(point, i)` adds what the cloud's kind of point has besides.
  template <typename Finish>
  void Fill(const Coordinates<N>& at, const Echo (&echo)[N], const Finish& finish) {
    for (size_t i = 0; i < N; i += Interleaver::kPoints) {
      const Interleaver four(at.x + i, at.y + i, at.z + i, echo + i);
      for (size_t k = 0; k < Interleaver::kPoints; ++k) {
        four.Store(k, Points() + i + k);
        finish(Points()[i + k], i + k);
      }
    }
  }

  T* Points() { return reinterpret_cast<T*>(storage_); }

 private:
  alignas(T) std::byte storage_[N * sizeof(T)];
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
