// SPDX-License-Identifier: Apache-2.0
#include "live_session.h"

#include <cmath>
#include <cstddef>
#include <string>
#include <utility>

#include "failure.h"

namespace orva {
namespace {

constexpr std::size_t kMostClouds = 40;  ///< two seconds of the fastest sensor, some 24 MB
constexpr std::size_t kMostImuSamples = 100'000;

/// Whether the points lie in more than one direction, seen from where the sensor is mounted. Without
/// calibration the grid models measure every point straight ahead.
bool DirectionsVary(const Cloud& cloud, const DecoderParam& param) {
  constexpr double kSine = 0.01;
  const bool mounted = param.use_transform;
  double first[3] = {};
  for (const PointTime& point : cloud.points) {
    const double x = point.x - (mounted ? param.x_offset : 0.0F);
    const double y = point.y - (mounted ? param.y_offset : 0.0F);
    const double z = point.z - (mounted ? param.z_offset : 0.0F);
    const double length = std::sqrt(x * x + y * y + z * z);
    if (!IsValid(point) || !(length > 0.5)) {
      continue;
    }
    if (first[0] == 0.0 && first[1] == 0.0 && first[2] == 0.0) {
      first[0] = x / length;
      first[1] = y / length;
      first[2] = z / length;
    } else if ((first[0] * x + first[1] * y + first[2] * z) / length < std::sqrt(1.0 - kSine * kSine)) {
      return true;
    }
  }
  return false;
}

}  // namespace

LiveSession::LiveSession(const DriverParam& param, bool keep_clouds, bool keep_imu)
    : decoder_param_(param.decoder_param), keep_clouds_(keep_clouds), keep_imu_(keep_imu) {
  driver_.RegisterPointCloudCallBack([this](std::shared_ptr<Cloud> cloud) { PutCloud(std::move(cloud)); },
                                     [] { return std::make_shared<Cloud>(); });
  driver_.RegisterImuCallBack([this](std::shared_ptr<ImuMsg> sample) { PutImu(std::move(sample)); },
                              [] { return std::make_shared<ImuMsg>(); });
  driver_.RegisterExceptionCallBack([this](const Error& error) {
    const std::lock_guard lock(mutex_);
    ++(error.error_code == ERROR_MSOP_LENGTH ? counts_.length_faults : counts_.id_faults);
  });
  if (!driver_.InitDriver(param)) {
    throw Failure("cannot open UDP port " + std::to_string(param.input_param.msop_port) +
                  " for the points, or the command port. Another program may hold it, or --host and "
                  "--command-host are no addresses of this machine ('ip address' lists them).");
  }
  if (!driver_.Start()) {
    throw Failure("the system refuses a thread for the driver. Close some programs and try again.");
  }
}

LiveSession::~LiveSession() {
  driver_.Stop();
}

LiveSession::Arrivals LiveSession::Take(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  arrived_.wait_for(lock, patience,
                    [this] { return !arrivals_.clouds.empty() || !arrivals_.imu_samples.empty(); });
  return std::exchange(arrivals_, {});
}

LiveCounts LiveSession::Counts() {
  const std::lock_guard lock(mutex_);
  return counts_;
}

void LiveSession::PutCloud(std::shared_ptr<Cloud> cloud) {
  const bool directions_vary = DirectionsVary(*cloud, decoder_param_);
  const std::lock_guard lock(mutex_);
  ++counts_.frames;
  counts_.points += cloud->points.size();
  counts_.directions_vary = directions_vary;
  if (keep_clouds_ && arrivals_.clouds.size() >= kMostClouds) {
    ++counts_.missed;
  } else if (keep_clouds_) {
    arrivals_.clouds.push_back(std::move(cloud));
  }
  arrived_.notify_one();
}

void LiveSession::PutImu(std::shared_ptr<ImuMsg> sample) {
  const std::lock_guard lock(mutex_);
  ++counts_.imu_samples;
  if (keep_imu_ && arrivals_.imu_samples.size() >= kMostImuSamples) {
    ++counts_.missed;
  } else if (keep_imu_) {
    arrivals_.imu_samples.push_back(std::move(sample));
    arrived_.notify_one();
  }
}

}  // namespace orva
