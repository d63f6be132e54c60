// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <atomic>
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

/// An application that takes everything a driver delivers, and steps through a recording.
template <typename PC>
class Player {
 public:
  explicit Player(std::function<std::shared_ptr<PC>()> get = [] { return std::make_shared<PC>(); }) {
    driver.RegisterPointCloudCallBack([this](std::shared_ptr<PC> cloud) { Take(std::move(cloud)); }, get);
    driver.RegisterImuCallBack([this](std::shared_ptr<ImuMsg> sample) { imu.push_back(std::move(sample)); },
                               [] { return std::make_shared<ImuMsg>(); });
    driver.RegisterExceptionCallBack([this](const Error& error) { errors.push_back(error.error_code); });
  }
  ~Player() { driver.Stop(); }

  bool Run(const DriverParam& param) { return driver.InitDriver(param) && driver.Start(); }
  /// The same with a recording; the frames of its index, or -1.
  int Open(const DriverParam& param) { return Run(param) ? WaitIndexed() : -1; }
  /// The frames of the index, or -1 if indexing does not end.
  int WaitIndexed() {
    int frames = -1;
    Eventually([&] { return driver.GetLocalFileStatus(frames); });
    return frames;
  }
  /// Asks for a frame until the play before has ended.
  bool Ask(int frame) {
    return Eventually([&] { return driver.SetLocalFrame(frame); });
  }
  /// Plays a frame and returns its cloud; null if none comes.
  std::shared_ptr<PC> Play(int frame) {
    const size_t before = Count();
    return Ask(frame) ? Wait(before + 1) : nullptr;
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
  DriverStatistics Statistics() {
    DriverStatistics statistics;
    EXPECT_TRUE(driver.GetStatistics(statistics));
    return statistics;
  }

  std::function<void(PC&)> on_cloud = [](PC&) {};  ///< runs inside the put callback, before the cloud counts
  // Written by the driver's thread: to be read when it has stopped, or after a cloud that came behind.
  std::vector<std::shared_ptr<ImuMsg>> imu;
  std::vector<int> errors;
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

inline DriverParam LiveParam(LidarType model, uint16_t port = FreePort()) {
  DriverParam param;
  param.lidar_type = model;
  param.input_param.host_ip = kLoopback;
  param.input_param.msop_port = port;
  param.decoder_param = OpenLimits();
  return param;
}

inline CalibrationParam CommandParam(uint16_t sensor_port, uint16_t local_port = FreePort()) {
  CalibrationParam param;
  param.local_ip = param.lidar_ip = kLoopback;
  param.local_port = local_port;
  param.lidar_port = sensor_port;
  return param;
}

/// The data side of a sensor: sends packets no faster than they are taken, so none is lost.
class DataPort {
 public:
  explicit DataPort(uint16_t driver_port) : driver_port_(driver_port) {}

  void Send(const Packet& packet) { SendBytes(packet.data(), packet.size()); }
  void Send(const std::vector<Packet>& packets) {
    for (const Packet& packet : packets) Send(packet);
  }
  void SendBytes(const void* data, size_t size) {
    constexpr unsigned kWindow = 40;  // a fraction of the smallest receive buffer
    if (++sent_ % kWindow == 0) Eventually([this] { return WaitingBytes(driver_port_) == 0; });
    peer_.Send(driver_port_, data, size);
  }

 private:
  UdpPeer peer_;
  uint16_t driver_port_;
  unsigned sent_ = 0;
};

}  // namespace orva::test
