// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "manager/orva_driver_sdk.h"

namespace tevoro::lidar {

/// Drives a live sensor: receives its datagrams, decodes them, delivers frames and IMU samples, and downloads
/// the calibration when asked to.
template <typename PC>
class OnlineManager : public DriverManager<PC> {
 public:
  OnlineManager();
  ~OnlineManager() override;

  /// Decoder, calibration, input, first containers, in this order. False when the model is unknown or a
  /// socket cannot be opened; everything built is then released.
  bool Init(const DriverParam& param) override;
  /// Only after an Init that returned true.
  bool Start() override;
  void Stop() override;
  bool GetStatistics(DriverStatistics& statistics) const override;

 private:
  class Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace tevoro::lidar
