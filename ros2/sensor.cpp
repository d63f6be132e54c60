// SPDX-License-Identifier: Apache-2.0
#include "sensor.h"

#include <pthread.h>

#include <stdexcept>
#include <utility>

#include "shared/models.h"

namespace orva::ros2 {
namespace {

/// At 20 Hz a tenth of a second. More would only make what arrives older.
constexpr std::size_t kWaitingFrames = 2;
/// A second of the fastest IMU.
constexpr std::size_t kWaitingSamples = 512;

}  // namespace

Sensor::Sensor(const SensorSetup& setup, const Participant& participant, Delivery delivery)
    : setup_(setup),
      topics_(participant, setup.space, delivery, setup.cloud),
      reports_(participant, setup.space, delivery, setup.cloud) {
  driver_.RegisterPointCloudCallBack([this](std::shared_ptr<Cloud> cloud) { TakeCloud(std::move(cloud)); },
                                     [] { return std::make_shared<Cloud>(); });
  driver_.RegisterImuCallBack([this](std::shared_ptr<ImuMsg> reading) { TakeImu(std::move(reading)); },
                              [] { return std::make_shared<ImuMsg>(); });
  driver_.RegisterPacketCallBack([this](const uint8_t*, size_t, double received) { TakePacket(received); });
  if (!driver_.InitDriver(setup_.param))
    throw std::runtime_error(setup_.name +
                             ": the driver cannot listen. Is the port in use, is the address this "
                             "machine's? 'orva live' tells more.");
  if (!setup_.mounting.parent.empty()) reports_.Publish(setup_.mounting);
  publisher_ = std::thread([this] { PublishLoop(); });
  pthread_setname_np(publisher_.native_handle(), "orva-publish");
  if (!driver_.Start()) {
    driver_.Stop();
    throw std::runtime_error(setup_.name + ": the system refuses a thread");
  }
}

Sensor::~Sensor() {
  driver_.Stop();
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_all();
  if (publisher_.joinable()) publisher_.join();
}

void Sensor::TakePacket(double received) {
  if (first_packet_ == 0.0) first_packet_ = received;
  last_packet_ = received;
}

/// Until a download is in use, points have no direction.
bool Sensor::MayShow() {
  if (setup_.uncalibrated || !setup_.param.calib_from_lidar) return true;
  DriverStatistics statistics;
  return driver_.GetStatistics(statistics) && statistics.calibration != CALIBRATION_DOWNLOADING;
}

void Sensor::TakeCloud(std::shared_ptr<Cloud> cloud) {
  const double first_packet = std::exchange(first_packet_, 0.0);
  const bool shown = MayShow();
  {
    const std::lock_guard lock(mutex_);
    if (!shown) {
      ++held_back_;
      return;
    }
    if (frames_.size() == kWaitingFrames) {
      frames_.pop_front();
      ++dropped_;
    }
    frames_.push_back({std::move(cloud), first_packet});
  }
  changed_.notify_all();
}

void Sensor::TakeImu(std::shared_ptr<ImuMsg> reading) {
  {
    const std::lock_guard lock(mutex_);
    if (samples_.size() == kWaitingSamples) {
      samples_.pop_front();
      ++samples_lost_;
    }
    samples_.push_back({std::move(reading), last_packet_});
  }
  changed_.notify_all();
}

void Sensor::PublishLoop() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return closing_ || !frames_.empty() || !samples_.empty(); });
    if (closing_) return;
    const std::deque<Sample> samples = std::exchange(samples_, {});
    Frame frame{};
    if (!frames_.empty()) {
      frame = std::move(frames_.front());
      frames_.pop_front();
    }
    lock.unlock();
    uint64_t samples_lost = 0;
    for (const Sample& sample : samples) {
      if (!topics_.Publish(*sample.reading, sample.received)) ++samples_lost;
    }
    const bool published = frame.cloud && topics_.Publish(*frame.cloud, frame.first_packet);
    lock.lock();
    samples_lost_ += samples_lost;
    if (frame.cloud) ++(published ? published_ : not_taken_);
  }
}

void Sensor::ReportDiagnostics(double seconds) {
  DriverStatistics now;
  if (!driver_.GetStatistics(now)) return;
  const messages::DiagnosticSource source = {"orva: " + setup_.name, TraitsOf(setup_.param.lidar_type).name};
  reports_.Publish(now, std::exchange(reported_, now), seconds, source);
}

std::string Sensor::Summary() {
  const std::lock_guard lock(mutex_);
  std::string text = setup_.name + ": " + std::to_string(published_) + " frames published";
  const auto add = [&text](uint64_t count, const char* what) {
    if (count > 0) text += ", " + std::to_string(count) + what;
  };
  add(dropped_, " dropped: publishing takes longer than a frame");
  add(not_taken_, " not sent: a reliable reader did not keep up");
  add(held_back_, " held back until the calibration was in use");
  add(samples_lost_, " IMU samples lost");
  return text;
}

}  // namespace orva::ros2
