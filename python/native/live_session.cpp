// SPDX-License-Identifier: Apache-2.0
#include "live_session.h"

#include <algorithm>
#include <utility>

namespace orva_python {
namespace {

constexpr std::size_t kMostImuSamples = 100'000;  ///< more than ten seconds of the fastest sensor, 5 MB

}  // namespace

template <typename PC>
LiveSession<PC>::LiveSession(const DriverParam& param, std::size_t queue, bool uncalibrated)
    : most_clouds_(queue), holds_back_(param.calib_from_lidar && !uncalibrated) {
  driver_.RegisterPointCloudCallBack([this](std::shared_ptr<PC> cloud) { PutCloud(std::move(cloud)); },
                                     [this] { return GetCloud(); });
  driver_.RegisterImuCallBack([this](std::shared_ptr<ImuMsg> sample) { PutImu(*sample); },
                              [] { return std::make_shared<ImuMsg>(); });
  driver_.RegisterPacketCallBack(
      [this](const uint8_t*, std::size_t, double received) { received_ = received; });
  if (!driver_.InitDriver(param)) throw Refused("the driver cannot listen");
  running_ = true;
  calibrated_ = CalibrationInUse();
  if (!driver_.Start()) throw Refused("the system refuses a thread for the driver");
}

template <typename PC>
std::optional<Frame<PC>> LiveSession<PC>::Take(std::optional<double> seconds, const Check& check) {
  using Seconds = std::chrono::duration<double>;
  calls_.RequireOwnProcess();
  const auto start = std::chrono::steady_clock::now();
  std::unique_lock lock(mutex_);
  while (clouds_.empty() && !closed_) {
    Seconds patience = kSlice;
    if (seconds) {
      const Seconds left = Seconds(*seconds) - (std::chrono::steady_clock::now() - start);
      if (left <= Seconds(0)) return std::nullopt;
      patience = std::min(patience, left);
    }
    arrived_.wait_for(lock, patience, [this] { return closed_ || !clouds_.empty(); });
    lock.unlock();
    check();
    if (holds_back_ && Statistics(check).calibration == CALIBRATION_NONE) {
      throw Refused("the calibration that the sensor sent is not whole");
    }
    lock.lock();
  }
  if (closed_) return std::nullopt;
  Frame<PC> frame = std::move(clouds_.front());
  clouds_.pop_front();
  return frame;
}

template <typename PC>
std::vector<ImuMsg> LiveSession<PC>::TakeImu() {
  calls_.RequireOwnProcess();
  std::deque<ImuMsg> samples;
  {
    const std::lock_guard lock(mutex_);
    samples.swap(imu_samples_);
  }
  return {samples.begin(), samples.end()};
}

template <typename PC>
typename LiveSession<PC>::Counts LiveSession<PC>::Read() {
  calls_.RequireOwnProcess();
  const std::lock_guard lock(mutex_);
  return counts_;
}

template <typename PC>
DriverStatistics LiveSession<PC>::Statistics(const Check& check) {
  const auto lock = calls_.Take(check);
  DriverStatistics statistics;
  driver_.GetStatistics(statistics);
  return statistics;
}

template <typename PC>
void LiveSession<PC>::Close() {
  if (!InOwnProcess()) return;
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    clouds_.clear();
  }
  arrived_.notify_all();
  const auto lock = calls_.Take([] {});
  driver_.Stop();
}

template <typename PC>
std::shared_ptr<PC> LiveSession<PC>::GetCloud() {
  calibrated_ = running_ && CalibrationInUse();
  auto cloud = std::make_shared<PC>();
  cloud->points.reserve(usual_size_);
  return cloud;
}

template <typename PC>
bool LiveSession<PC>::CalibrationInUse() {
  DriverStatistics statistics;
  return driver_.GetStatistics(statistics) && (statistics.calibration == CALIBRATION_FROM_FOLDER ||
                                               statistics.calibration == CALIBRATION_FROM_SENSOR);
}

template <typename PC>
void LiveSession<PC>::PutCloud(std::shared_ptr<PC> cloud) {
  usual_size_ = cloud->points.size();
  const std::lock_guard lock(mutex_);
  const auto number = static_cast<std::int64_t>(frames_++);
  if (holds_back_ && !calibrated_) {
    ++counts_.held_back;
    return;
  }
  if (closed_) return;
  if (clouds_.size() >= most_clouds_) {
    clouds_.pop_front();
    ++counts_.dropped;
  }
  clouds_.push_back({std::move(cloud), number, 0, 0, received_, calibrated_});
  arrived_.notify_one();
}

template <typename PC>
void LiveSession<PC>::PutImu(const ImuMsg& sample) {
  const std::lock_guard lock(mutex_);
  if (imu_samples_.size() >= kMostImuSamples) {
    imu_samples_.pop_front();
    ++counts_.dropped_imu;
  }
  imu_samples_.push_back(sample);
}

template class LiveSession<PointCloud<Point>>;
template class LiveSession<PointCloud<PointTime>>;
template class LiveSession<PointCloud<PointSource>>;

}  // namespace orva_python
