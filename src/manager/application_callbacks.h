// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "orva_driver.h"

namespace tevoro::lidar {

/// What an application has registered; each may be empty.
template <typename PC>
struct ApplicationCallbacks {
  std::function<void(const Error&)> exception;
  std::function<void(std::shared_ptr<PC>)> put_point_cloud;
  std::function<std::shared_ptr<PC>()> get_point_cloud;
  std::function<void(std::shared_ptr<ImuMsg>)> put_imu_msg;
  std::function<std::shared_ptr<ImuMsg>()> get_imu_msg;
  std::function<void(const uint8_t* data, size_t length, double received)> packet;
};

}  // namespace tevoro::lidar
