// SPDX-License-Identifier: Apache-2.0
//
// Equality of results, to the last bit.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <concepts>
#include <cstring>
#include <type_traits>
#include <vector>

#include "orva_driver.h"

namespace orva::test {

/// The same number to the last bit. Two NaNs are the same: which one an operation yields is not defined.
template <std::floating_point Real>
bool Same(Real a, Real b) {
  return std::memcmp(&a, &b, sizeof(Real)) == 0 || (std::isnan(a) && std::isnan(b));
}

template <typename T>
requires std::is_class_v<T>
bool Same(const T& a, const T& b) {
  bool same =
      Same(a.x, b.x) && Same(a.y, b.y) && Same(a.z, b.z) && a.intensity == b.intensity && a.label == b.label;
  if constexpr (!std::is_same_v<T, Point>) same = same && Same(a.timestamp, b.timestamp);
  if constexpr (std::is_same_v<T, PointSource>) {
    same = same && a.source_distance == b.source_distance && a.source_reserved == b.source_reserved;
  }
  return same;
}

inline bool SameImu(const ImuMsg& a, const ImuMsg& b) {
  return a.valid == b.valid && Same(a.timestamp, b.timestamp) &&
         a.angular_velocity_x == b.angular_velocity_x && a.angular_velocity_y == b.angular_velocity_y &&
         a.angular_velocity_z == b.angular_velocity_z && a.linear_acceleration_x == b.linear_acceleration_x &&
         a.linear_acceleration_y == b.linear_acceleration_y &&
         a.linear_acceleration_z == b.linear_acceleration_z;
}

template <typename T>
void ExpectSamePoints(const std::vector<T>& got, const std::vector<T>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) {
    ASSERT_TRUE(Same(got[i], want[i]))
        << "point " << i << ": (" << got[i].x << ' ' << got[i].y << ' ' << got[i].z << ") instead of ("
        << want[i].x << ' ' << want[i].y << ' ' << want[i].z << ')';
  }
}

template <typename PC>
void ExpectSameCloud(const PC& got, const PC& want) {
  ASSERT_NO_FATAL_FAILURE(ExpectSamePoints(got.points, want.points));
  EXPECT_TRUE(Same(got.timestamp, want.timestamp)) << got.timestamp << " instead of " << want.timestamp;
  EXPECT_EQ(got.status_word, want.status_word);
  EXPECT_EQ(got.status_byte, want.status_byte);
  EXPECT_TRUE(Same(got.temperature_a, want.temperature_a));
  EXPECT_TRUE(Same(got.temperature_b, want.temperature_b));
}

}  // namespace orva::test
