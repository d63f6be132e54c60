// SPDX-License-Identifier: Apache-2.0
//
// What the topics of a recording must carry: what the driver delivers of it through its public interface.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "orva_driver.h"
#include "support/reference_decoder.h"

namespace orva::ros2::test {

using Cloud = PointCloud<PointTime>;

struct Delivered {
  struct Frame {
    std::shared_ptr<Cloud> cloud;
    double stamp;  ///< the sensor's time, else the capture time of its first packet
  };
  std::vector<Frame> frames;
  struct Sample {
    double stamp;
    std::array<double, 6> values;  ///< turn rates x, y, z; accelerations x, y, z
  };
  std::vector<Sample> imu;
};

/// All that a recording holds, in order.
inline Delivered Deliver(LidarType model, const std::string& path, const std::string& calibration) {
  Delivered delivered;
  OrvaDriver<Cloud> driver;
  // The driver delivers IMU samples live only; those of a recording are worked out as its documents say.
  const auto reference = orva::test::MakeReference<Cloud>(model, DecoderParam());
  ImuMsg sample;
  double first_packet = 0.0, last_packet = 0.0;
  reference->imu = &sample;
  reference->on_imu = [&] {
    delivered.imu.push_back(
        {sample.timestamp > 0 ? sample.timestamp : last_packet,
         {sample.angular_velocity_x, sample.angular_velocity_y, sample.angular_velocity_z,
          sample.linear_acceleration_x, sample.linear_acceleration_y, sample.linear_acceleration_z}});
  };
  reference->on_frame = [](double) {};
  driver.RegisterPacketCallBack([&](const uint8_t* packet, size_t, double captured) {
    if (first_packet == 0.0) first_packet = captured;
    last_packet = captured;
    if (model == TS6 || model == NV2) reference->Decode(packet, 0);
  });
  driver.RegisterPointCloudCallBack(
      [&](std::shared_ptr<Cloud> cloud) {
        double stamp = std::exchange(first_packet, 0.0);
        if (!cloud->points.empty() && cloud->points[0].timestamp > 0) stamp = cloud->points[0].timestamp;
        if (cloud->timestamp > 0) stamp = cloud->timestamp;
        delivered.frames.push_back({std::move(cloud), stamp});
      },
      [] { return std::make_shared<Cloud>(); });
  DriverParam param;
  param.input_type = PCAP;
  param.lidar_type = model;
  param.input_param.pcap_path = path;
  param.calibration_param.calib_folder = calibration;
  param.decoder_param.max_distance = 1000;
  param.decoder_param.min_azimuth = -180;
  param.decoder_param.max_azimuth = 180;
  param.decoder_param.min_elevation = -90;
  param.decoder_param.max_elevation = 90;
  if (!driver.InitDriver(param) || !driver.Start()) return delivered;
  int frames = 0;
  while (!driver.GetLocalFileStatus(frames)) std::this_thread::yield();
  for (int frame = 0; frame < frames; ++frame) {
    while (!driver.SetLocalFrame(frame)) std::this_thread::yield();
  }
  DriverStatistics statistics;
  while (driver.GetStatistics(statistics) && statistics.frames < static_cast<uint64_t>(frames))
    std::this_thread::yield();
  driver.Stop();
  return delivered;
}

/// Tells received clouds apart from those that the driver delivered, point by point.
class Judge {
 public:
  explicit Judge(Delivered delivered) : delivered_(std::move(delivered)) {
    for (size_t i = 0; i < delivered_.frames.size(); ++i) {
      const Cloud& cloud = *delivered_.frames[i].cloud;
      if (!cloud.points.empty() && expected_.emplace(Hash(cloud), i).second) missing_.insert(i);
    }
  }

  /// A cloud with the packed layout of 22 bytes a point.
  void Take(int32_t sec, uint32_t nanosec, uint32_t points, uint32_t point_step, const uint8_t* data,
            size_t bytes) {
    const auto fail = [&](const char* why) {
      ++wrong_;
      std::printf("cloud %d.%09u: %s\n", sec, nanosec, why);
    };
    if (point_step != 22 || bytes != size_t{points} * 22) return fail("another layout");
    uint64_t hash = kSeed;
    std::vector<float> times(points);
    for (uint32_t i = 0; i < points; ++i) {
      float xyz[3];
      float intensity;
      uint16_t ring;
      std::memcpy(&times[i], data + 22 * i + 18, 4);
      std::memcpy(xyz, data + 22 * i, 12);
      std::memcpy(&intensity, data + 22 * i + 12, 4);
      std::memcpy(&ring, data + 22 * i + 16, 2);
      if (std::isnan(xyz[0])) xyz[0] = xyz[1] = xyz[2] = 0.0F;
      hash = Mix(hash, xyz, intensity, ring);
    }
    if (!expected_.contains(hash)) return fail("its points are of no frame of the driver");
    missing_.erase(expected_[hash]);
    const auto& [cloud, stamp] = delivered_.frames[expected_[hash]];
    if (std::abs(sec + nanosec * 1e-9 - stamp) > kRounding)
      return fail(("its stamp is not the frame's, " + std::to_string(stamp)).c_str());
    for (uint32_t i = 0; i < points; ++i) {
      const double measured = cloud->points[i].timestamp;
      if (std::abs(times[i] - (measured > 0 ? measured - stamp : 0.0)) > kRounding)
        return fail("the time of a point is not the driver's");
    }
    if (!stamps_.insert(sec * int64_t{1'000'000'000} + nanosec).second) return fail("comes a second time");
  }
  void TakeImu(int32_t sec, uint32_t nanosec, const std::array<double, 6>& values,
               double orientation_covariance) {
    const double stamp = sec + nanosec * 1e-9;
    const bool known =
        std::any_of(delivered_.imu.begin(), delivered_.imu.end(), [&](const Delivered::Sample& sample) {
          return std::abs(sample.stamp - stamp) <= kRounding && sample.values == values;
        });
    if (orientation_covariance != -1.0 || !known) {
      ++wrong_;
      std::printf("IMU sample %d.%09u: none of the sensor's, or with an orientation\n", sec, nanosec);
    }
    imu_.insert(sec * int64_t{1'000'000'000} + nanosec);
  }

  size_t clouds() const { return stamps_.size(); }
  size_t samples() const { return imu_.size(); }

  /// Prints the result; 0 if all is well.
  int Verdict(size_t wanted, size_t wanted_imu) const {
    if (stamps_.size() < wanted)
      for (const size_t number : missing_) std::printf("frame %zu is missing\n", number);
    std::printf("%zu clouds and %zu IMU samples as the driver delivered them, %d wrong; wanted %zu and %zu\n",
                stamps_.size(), imu_.size(), wrong_, wanted, wanted_imu);
    return wrong_ == 0 && stamps_.size() >= wanted && imu_.size() >= wanted_imu ? 0 : 1;
  }

 private:
  static constexpr double kRounding = 1e-6;  ///< of seconds since 1970 in double, and of nanoseconds
  static constexpr uint64_t kSeed = 14695981039346656037U;

  static uint64_t Mix(uint64_t hash, const float* xyz, float intensity, uint16_t ring) {
    const auto add = [&hash](const void* value, size_t size) {
      for (size_t i = 0; i < size; ++i)
        hash = (hash ^ static_cast<const uint8_t*>(value)[i]) * 1099511628211U;
    };
    add(xyz, 12);
    add(&intensity, 4);
    add(&ring, 2);
    return hash;
  }
  static uint64_t Hash(const Cloud& cloud) {
    uint64_t hash = kSeed;
    for (const PointTime& point : cloud.points) {
      const bool valid = point.x != 0 || point.y != 0 || point.z != 0;
      const float xyz[3] = {valid ? point.x : 0.0F, valid ? point.y : 0.0F, valid ? point.z : 0.0F};
      hash = Mix(hash, xyz, point.intensity, point.label);
    }
    return hash;
  }

  Delivered delivered_;
  std::map<uint64_t, size_t> expected_;  ///< number of the frame by what is in it
  std::set<size_t> missing_;
  std::set<int64_t> stamps_, imu_;
  int wrong_ = 0;
};

/// The readers' command line: MODEL FILE CALIBRATION TOPIC_PREFIX CLOUDS SAMPLES SECONDS [best]
struct Arguments {
  LidarType model;
  std::string file, calibration, prefix;
  size_t clouds, samples;
  int seconds;
  bool best_effort;

  static Arguments Read(int argc, char** argv) {
    if (argc < 8) {
      std::fprintf(stderr, "usage: reader MODEL FILE CALIBRATION NAMESPACE CLOUDS SAMPLES SECONDS [best]\n");
      std::exit(2);
    }
    return {static_cast<LidarType>(std::stoi(argv[1])),
            argv[2],
            argv[3],
            argv[4],
            std::stoul(argv[5]),
            std::stoul(argv[6]),
            std::stoi(argv[7]),
            argc > 8};
  }
};

}  // namespace orva::ros2::test
