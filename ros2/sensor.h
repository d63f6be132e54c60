// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "deliveries.h"
#include "options.h"
#include "sensor_topics.h"

namespace orva::ros2 {

/// A live sensor and its topics. The driver's thread only queues; a thread of its own publishes, so that a
/// reader which does not keep up holds nobody else up. Where the queue is full its oldest entry goes.
class Sensor {
 public:
  /// Throws std::runtime_error where the driver cannot listen, and DdsError.
  Sensor(const SensorSetup& setup, const Participant& participant, Delivery delivery);

  /// What became of its packets, frames and samples, `seconds` after the last time.
  messages::DiagnosticStatus Diagnose(double seconds);
  /// A line about what has become of its frames.
  std::string Summary();

 private:
  using Cloud = PointCloud<PointTime>;
  struct Frame {
    std::shared_ptr<Cloud> cloud;
    double first_packet;
  };
  struct Sample {
    std::shared_ptr<ImuMsg> reading;
    double received;
  };

  bool MayShow();
  void TakePacket(double received);
  void TakeCloud(std::shared_ptr<Cloud> cloud);
  void TakeImu(std::shared_ptr<ImuMsg> reading);
  void PublishLoop(const std::stop_token& stop);
  Deliveries Delivered();

  const SensorSetup setup_;
  SensorTopics topics_;             ///< of the publishing thread
  DriverStatistics reported_;       ///< of the thread that calls Diagnose
  Deliveries reported_deliveries_;  ///< the same
  double first_packet_ = 0.0;       ///< of the frame in the making; the decoding thread's own
  double last_packet_ = 0.0;

  std::mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<Frame> frames_;
  std::deque<Sample> samples_;
  Deliveries deliveries_;

  // Last, so that the threads end before what they use goes.
  std::jthread publisher_;
  OrvaDriver<Cloud> driver_;
};

}  // namespace orva::ros2
