// SPDX-License-Identifier: Apache-2.0
#include "sensor.h"

#include <pthread.h>

#include <optional>
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
    : setup_(setup), topics_(participant, setup.space, delivery, setup.cloud) {
  driver_.RegisterPointCloudCallBack([this](std::shared_ptr<Cloud> cloud) { TakeCloud(std::move(cloud)); },
                                     [] { return std::make_shared<Cloud>(); });
  driver_.RegisterImuCallBack([this](std::shared_ptr<ImuMsg> reading) { TakeImu(std::move(reading)); },
                              [] { return std::make_shared<ImuMsg>(); });
  driver_.RegisterPacketCallBack([this](const uint8_t*, size_t, double received) { TakePacket(received); });
  if (!driver_.InitDriver(setup_.param))
    throw std::runtime_error(setup_.name +
                             ": the driver cannot listen. Is the port in use, is the address this "
                             "machine's? 'orva live' tells more.");
  publisher_ = std::jthread([this](const std::stop_token& stop) { PublishLoop(stop); });
  pthread_setname_np(publisher_.native_handle(), "orva-publish");
  if (!driver_.Start()) throw std::runtime_error(setup_.name + ": the system refuses a thread");
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
      ++deliveries_.held_back;
      return;
    }
    if (frames_.size() == kWaitingFrames) {
      frames_.pop_front();
      ++deliveries_.dropped;
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
      ++deliveries_.samples_lost;
    }
    samples_.push_back({std::move(reading), last_packet_});
  }
  changed_.notify_all();
}

void Sensor::PublishLoop(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (changed_.wait(lock, stop, [this] { return !frames_.empty() || !samples_.empty(); }) &&
         !stop.stop_requested()) {
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
    std::optional<Outcome> outcome;
    if (frame.cloud) outcome = topics_.Publish(*frame.cloud, frame.first_packet);
    lock.lock();
    deliveries_.samples_lost += samples_lost;
    if (outcome) deliveries_.Add(*outcome);
  }
}

Deliveries Sensor::Delivered() {
  const std::lock_guard lock(mutex_);
  return deliveries_;
}

messages::DiagnosticStatus Sensor::Diagnose(double seconds) {
  DriverStatistics now = reported_;
  driver_.GetStatistics(now);
  const Deliveries deliveries = Delivered();
  const messages::DiagnosticSource source = {"orva: " + setup_.name, TraitsOf(setup_.param.lidar_type).name};
  return ros2::Diagnose(now, std::exchange(reported_, now), deliveries,
                        std::exchange(reported_deliveries_, deliveries), seconds, source);
}

std::string Sensor::Summary() {
  return Delivered().Summary(setup_.name);
}

}  // namespace orva::ros2
