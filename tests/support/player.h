// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "orva_driver.h"
#include "support/loopback.h"
#include "support/packets.h"

namespace orva::test {

/// An application that steps through a recording and keeps what it is given.
template <typename PC>
class Player {
 public:
  explicit Player(std::function<std::shared_ptr<PC>()> get = [] { return std::make_shared<PC>(); }) {
    driver.RegisterPointCloudCallBack([this](std::shared_ptr<PC> cloud) { Take(std::move(cloud)); }, get);
    driver.RegisterExceptionCallBack([this](const Error& error) {
      const std::lock_guard lock(mutex_);
      errors_.push_back(error.error_code);
    });
  }
  ~Player() { driver.Stop(); }

  /// Initialises and starts the driver; the frames of the index, or -1.
  int Open(const DriverParam& param) {
    return driver.InitDriver(param) && driver.Start() ? WaitIndexed() : -1;
  }
  /// The frames of the index, or -1 if indexing does not end.
  int WaitIndexed() {
    int frames = -1;
    Patiently([&] { return driver.GetLocalFileStatus(frames); });
    return frames;
  }
  /// Plays a frame and returns its cloud; null if none comes.
  std::shared_ptr<PC> Play(int frame) {
    const size_t before = Count();
    if (!Patiently([&] { return driver.SetLocalFrame(frame); })) return nullptr;
    return Wait(before + 1);
  }
  /// The cloud number `count`, counted from 1 over the life of this object.
  std::shared_ptr<PC> Wait(size_t count) {
    std::unique_lock lock(mutex_);
    if (!arrived_.wait_for(lock, kPatience, [&] { return clouds_.size() >= count; })) return nullptr;
    return clouds_[count - 1];
  }
  size_t Count() {
    const std::lock_guard lock(mutex_);
    return clouds_.size();
  }
  std::vector<int> Errors() {
    const std::lock_guard lock(mutex_);
    return errors_;
  }

  /// Asks again and again, for a generous while.
  static bool Patiently(const std::function<bool()>& condition) { return Eventually(condition); }

  std::function<void(PC&)> on_cloud = [](PC&) {};  ///< runs inside the put callback, before the cloud counts
  OrvaDriver<PC> driver;

 private:
  void Take(std::shared_ptr<PC> cloud) {
    on_cloud(*cloud);
    const std::lock_guard lock(mutex_);
    clouds_.push_back(std::move(cloud));
    arrived_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<std::shared_ptr<PC>> clouds_;
  std::vector<int> errors_;
};

inline DriverParam ReplayParam(LidarType model, const std::string& path) {
  DriverParam param;
  param.input_type = PCAP;
  param.lidar_type = model;
  param.input_param.pcap_path = path;
  param.input_param.msop_port = 2368;
  param.decoder_param = OpenLimits();
  return param;
}

}  // namespace orva::test
