// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "manager/application_callbacks.h"
#include "orva_driver.h"

namespace tevoro::lidar {

/// What the facade drives: the live manager or the replay manager. Holds the application's callbacks,
/// which are handed over before Init and not changed afterwards.
template <typename PC>
class DriverManager {
 public:
  DriverManager() = default;
  DriverManager(const DriverManager&) = delete;
  DriverManager& operator=(const DriverManager&) = delete;
  virtual ~DriverManager() = default;

  virtual bool Init(const DriverParam& param) = 0;
  virtual bool Start() = 0;
  virtual void Stop() = 0;
  /// Replay only; the live manager keeps these answers. Unreached: the tests ask replays alone.
  virtual bool GetLocalFileStatus(int& /*status*/) { return false; }
  virtual bool PlayLocalFileFrame(const int& /*frame*/) { return false; }

  virtual void RegisterPointCloudCallBack(const std::function<void(std::shared_ptr<PC>)>& put,
                                          const std::function<std::shared_ptr<PC>()>& get) {
    application_.put_point_cloud = put;
    application_.get_point_cloud = get;
  }
  virtual void RegisterImuCallBack(const std::function<void(std::shared_ptr<ImuMsg>)>& put,
                                   const std::function<std::shared_ptr<ImuMsg>()>& get) {
    application_.put_imu_msg = put;
    application_.get_imu_msg = get;
  }
  virtual void RegisterExceptionCallBack(const std::function<void(const Error&)>& callback) {
    application_.exception = callback;
  }
  // Further operations go below: the place of those above in the virtual table is settled.
  virtual void RegisterPacketCallBack(
      const std::function<void(const uint8_t* data, size_t length, double received)>& callback) {
    application_.packet = callback;
  }
  /// From any thread after an Init that returned true. Unreached: both managers override it.
  virtual bool GetStatistics(DriverStatistics& /*statistics*/) const { return false; }

 protected:
  ApplicationCallbacks<PC> application_;
};

}  // namespace tevoro::lidar
