// SPDX-License-Identifier: Apache-2.0
#include "feeds/live_feed.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "feeds/conditions.h"
#include "sessions/calibration_files.h"
#include "shared/models.h"
#include "view/page_frame.h"

namespace orva {
namespace {

constexpr std::size_t kMostImuSamples = 1024;  ///< some seconds

}  // namespace

LiveFeed::LiveFeed(const DriverParam& param, std::function<void()> ready)
    : param_(param),
      ready_(std::move(ready)),
      session_(param, {.clouds = true, .imu = true, .uncalibrated = true}) {
  const ModelTraits& model = TraitsOf(param.lidar_type);
  subject_.live = true;
  subject_.title = "UDP port " + std::to_string(param.input_param.msop_port);
  subject_.model = model.name;
  subject_.has_imu = model.has_imu;
  const DecoderParam& mounting = param.decoder_param;
  subject_.mounted = mounting.use_transform;
  subject_.mounting = {mounting.x_offset, mounting.y_offset, mounting.z_offset,
                       mounting.roll,     mounting.pitch,    mounting.yaw};
  worker_ = std::thread([this] { Work(); });
  pthread_setname_np(worker_.native_handle(), "orva-view");
}

LiveFeed::~LiveFeed() {
  Close();
}

void LiveFeed::Close() {
  closing_ = true;
  if (worker_.joinable()) {
    worker_.join();
  }
}

void LiveFeed::Work() {
  while (!closing_) {
    const LiveSession::Arrivals arrivals = session_.Take(std::chrono::milliseconds(50));
    TakeClouds(arrivals);
    TakeImu(arrivals);
    if (view::Clock::now() - renewed_ >= std::chrono::seconds(1)) {
      RenewStatus();
    }
    ready_();
  }
}

/// Of several only the newest is prepared; the page counts the gap in the numbers.
void LiveFeed::TakeClouds(const LiveSession::Arrivals& arrivals) {
  if (arrivals.clouds.empty()) {
    return;
  }
  arrived_ += static_cast<std::uint32_t>(arrivals.clouds.size());
  if (watching_ == 0) {
    return;
  }
  const LiveSession::Frame& last = arrivals.clouds.back();
  auto frame = std::make_shared<view::Frame>();
  const double time = last.cloud->timestamp > 0.0 ? last.cloud->timestamp : last.first_packet;
  *frame = {arrived_, last.first_packet, last.cloud,
            std::make_shared<const view::Bytes>(view::EncodePageFrame(*last.cloud, arrived_, time))};
  const std::lock_guard lock(mutex_);
  newest_ = std::move(frame);
}

void LiveFeed::TakeImu(const LiveSession::Arrivals& arrivals) {
  const std::lock_guard lock(mutex_);
  for (const auto& [sample, received] : arrivals.imu_samples) {
    imu_.push_back(*sample);
    ++imu_end_;
  }
  while (imu_.size() > kMostImuSamples) {
    imu_.pop_front();
  }
}

void LiveFeed::RenewStatus() {
  const view::Clock::time_point now = view::Clock::now();
  const DriverStatistics statistics = session_.Statistics();
  const std::lock_guard lock(mutex_);
  ++status_.version;
  status_.before = std::exchange(status_.statistics, statistics);
  status_.interval = std::chrono::duration<double>(now - std::exchange(renewed_, now)).count();
  status_.seconds = std::chrono::duration<double>(now - started_).count();
  status_.missed = session_.Counts().missed;
  status_.calibration = CalibrationText(param_.lidar_type, statistics);
  status_.condition = LiveCondition(param_, statistics, status_.before);
}

view::Status LiveFeed::status() {
  const std::lock_guard lock(mutex_);
  return status_;
}

view::FramePtr LiveFeed::Newest() {
  const std::lock_guard lock(mutex_);
  return newest_;
}

std::vector<ImuMsg> LiveFeed::ImuSince(std::uint64_t& taken) {
  const std::lock_guard lock(mutex_);
  const std::uint64_t kept = imu_.size();
  const std::uint64_t fresh = std::min(imu_end_ - std::exchange(taken, imu_end_), kept);
  return {imu_.end() - static_cast<std::ptrdiff_t>(fresh), imu_.end()};
}

std::uint64_t LiveFeed::Enter() {
  if (watching_++ == 0) {
    const std::lock_guard lock(mutex_);
    newest_ = nullptr;  // of the time when somebody watched last: the frames since then are nobody's loss
  }
  return ++clients_;
}

void LiveFeed::Leave(std::uint64_t /*client*/) {
  --watching_;
}

}  // namespace orva
