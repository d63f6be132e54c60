// SPDX-License-Identifier: Apache-2.0
#include "sessions/live_session.h"

#include <cstddef>
#include <string>
#include <utility>

#include "sessions/packet_losses.h"
#include "shared/failure.h"
#include "shared/models.h"

namespace orva {
namespace {

constexpr std::size_t kMostClouds = 40;  ///< two seconds of the fastest sensor, some 24 MB
constexpr std::size_t kMostImuSamples = 100'000;

}  // namespace

LiveSession::LiveSession(const DriverParam& param, const Keep& keep)
    : keep_(keep),
      waits_for_calibration_(param.calib_from_lidar && TraitsOf(param.lidar_type).uses_calibration) {
  counts_.judged = FrameCounts(param.lidar_type);
  driver_.RegisterPointCloudCallBack([this](std::shared_ptr<Cloud> cloud) { PutCloud(std::move(cloud)); },
                                     [] { return std::make_shared<Cloud>(); });
  driver_.RegisterImuCallBack([this](std::shared_ptr<ImuMsg> sample) { PutImu(std::move(sample)); },
                              [] { return std::make_shared<ImuMsg>(); });
  driver_.RegisterPacketCallBack(
      [this](const std::uint8_t*, std::size_t, double received) { TakePacket(received); });
  if (!driver_.InitDriver(param)) {
    throw Failure(CannotListen(param));
  }
  if (!driver_.Start()) {
    throw Failure("the system refuses a thread for the driver. Close some programs and try again.");
  }
}

DriverStatistics LiveSession::Statistics() {
  DriverStatistics statistics;
  driver_.GetStatistics(statistics);
  return statistics;
}

void LiveSession::Stop() {
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

void LiveSession::TakePacket(double received) {
  if (coming_.first_packet == 0.0) {
    coming_.first_packet = received;
  }
  coming_.last_packet = received;
}

void LiveSession::PutCloud(std::shared_ptr<Cloud> cloud) {
  Frame frame = std::exchange(coming_, {});
  // Calibration that came in the middle of a frame serves from the next one on.
  frame.uncalibrated = waits_for_calibration_;
  waits_for_calibration_ = waits_for_calibration_ && Statistics().calibration != CALIBRATION_FROM_SENSOR;
  const std::lock_guard lock(mutex_);
  ++counts_.frames;
  counts_.points += cloud->points.size();
  counts_.judged.Add(cloud->points.size());
  counts_.uncalibrated += frame.uncalibrated;
  if (!keep_.clouds || (frame.uncalibrated && !keep_.uncalibrated)) {
    // counted
  } else if (arrivals_.clouds.size() >= kMostClouds) {
    ++counts_.missed;
  } else {
    frame.cloud = std::move(cloud);
    arrivals_.clouds.push_back(std::move(frame));
  }
  arrived_.notify_one();
}

void LiveSession::PutImu(std::shared_ptr<ImuMsg> sample) {
  const std::lock_guard lock(mutex_);
  ++counts_.imu_samples;
  if (keep_.imu && arrivals_.imu_samples.size() >= kMostImuSamples) {
    ++counts_.missed;
  } else if (keep_.imu) {
    arrivals_.imu_samples.push_back({std::move(sample), coming_.last_packet});
    arrived_.notify_one();
  }
}

}  // namespace orva
