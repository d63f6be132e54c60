// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <variant>

#include "options.h"
#include "sensor_topics.h"

namespace orva::ros2 {

/// A live sensor and its topics. The driver's thread only queues; a thread of its own publishes, so that a
/// reader which does not keep up holds nobody else up. Where the queue is full its oldest entry goes.
class Sensor {
 public:
  /// Throws std::runtime_error where the driver cannot listen, and DdsError.
  Sensor(const SensorSetup& setup, const Participant& participant, Delivery delivery);
  ~Sensor();
  Sensor(const Sensor&) = delete;
  Sensor& operator=(const Sensor&) = delete;

  /// Publishes the counters, `seconds` after the last time.
  void ReportDiagnostics(double seconds);
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
  void PublishLoop();

  const SensorSetup setup_;
  SensorTopics topics_;   ///< of the publishing thread
  SensorTopics reports_;  ///< of the thread that calls ReportDiagnostics
  DriverStatistics reported_;
  double first_packet_ = 0.0;  ///< of the frame in the making; the decoding thread's own
  double last_packet_ = 0.0;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Frame> frames_;
  std::deque<Sample> samples_;
  bool closing_ = false;
  uint64_t published_ = 0;     ///< by the publishing thread, under the lock
  uint64_t dropped_ = 0;       ///< a later frame came before this one could go out
  uint64_t not_taken_ = 0;     ///< DDS waited for a reader too long
  uint64_t held_back_ = 0;     ///< came before the calibration
  uint64_t samples_lost_ = 0;  ///< IMU samples, for any of these reasons

  std::thread publisher_;
  OrvaDriver<Cloud> driver_;  ///< last, so that its threads end before what they use goes
};

}  // namespace orva::ros2
