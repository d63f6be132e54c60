// SPDX-License-Identifier: Apache-2.0
#include "decoder/mounting.h"

#include <Eigen/Geometry>
#include <numbers>

namespace tevoro::lidar {
namespace {

Eigen::AngleAxisd Rotation(float degrees, const Eigen::Vector3d& axis) {
  // The decimal constant, not 1/180: it decides the eighth digit of every mounted point.
  return {double{degrees} * std::numbers::pi * 0.005555556, axis};
}

}  // namespace

Mounting::Mounting(const DecoderParam& param) : enabled_(param.use_transform) {
  const Eigen::Translation3d translation(param.x_offset, param.y_offset, param.z_offset);
  // Left to right, each rotation as a matrix: a product of two AngleAxis would go through a quaternion
  // and round differently.
  const Eigen::Affine3d pose = translation * Rotation(param.yaw, Eigen::Vector3d::UnitZ()) *
                               Rotation(param.pitch, Eigen::Vector3d::UnitY()) *
                               Rotation(param.roll, Eigen::Vector3d::UnitX());
  for (size_t row = 0; row < 3; ++row) {
    for (size_t column = 0; column < 4; ++column) {
      matrix_[row][column] = pose(static_cast<Eigen::Index>(row), static_cast<Eigen::Index>(column));
    }
  }
}

}  // namespace tevoro::lidar
