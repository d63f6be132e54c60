// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "orva_driver.h"

namespace tevoro::lidar {

/// The sensor's pose: turns points of the sensor's frame into points of the frame it is mounted in.
class Mounting {
 public:
  explicit Mounting(const DecoderParam& param);

  /// Rotation and, in the last column, translation.
  using Matrix = double[3][4];
  const Matrix& Pose() const { return matrix_; }

  /// Rotates and translates one point in double. Does nothing unless `use_transform` was set.
  void Apply(float& x, float& y, float& z) const {
    if (!enabled_) return;
    const double px = x;
    const double py = y;
    const double pz = z;
    x = Row(0, px, py, pz);
    y = Row(1, px, py, pz);
    z = Row(2, px, py, pz);
  }

 private:
  float Row(size_t row, double x, double y, double z) const {
    const double* m = matrix_[row];
    return static_cast<float>(m[0] * x + m[1] * y + m[2] * z + m[3]);
  }

  bool enabled_;
  Matrix matrix_;
};

}  // namespace tevoro::lidar
