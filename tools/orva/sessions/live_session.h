// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_LIVE_SESSION_H_
#define ORVA_TOOLS_SESSIONS_LIVE_SESSION_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "sessions/frame_watch.h"
#include "shared/cloud.h"

namespace orva {

/// Counts since the start.
struct LiveCounts {
  std::uint64_t frames = 0;
  std::uint64_t points = 0;
  std::uint64_t imu_samples = 0;
  FrameCounts judged;
  std::uint64_t uncalibrated = 0;  ///< frames before the calibration that was asked of the sensor
  std::uint64_t missed = 0;        ///< frames and IMU samples that came faster than they were taken
};

/// A driver on a live sensor. Its callbacks only count and queue, so that a slow disk never holds up the
/// driver; what does not fit the queue is counted as missed.
class LiveSession {
 public:
  struct Keep {
    bool clouds = false;        ///< else they are counted, and not queued
    bool imu = false;           ///< likewise
    bool uncalibrated = false;  ///< clouds also that came before the calibration from the sensor
  };
  /// Throws Failure.
  LiveSession(const DriverParam& param, const Keep& keep);
  LiveSession(const LiveSession&) = delete;
  LiveSession& operator=(const LiveSession&) = delete;

  /// Times are when packets were received, seconds since the epoch.
  struct Frame {
    std::shared_ptr<Cloud> cloud;
    double first_packet = 0.0;
    double last_packet = 0.0;
    bool uncalibrated = false;  ///< the calibration from the sensor was not in use yet
  };
  struct ImuSample {
    std::shared_ptr<ImuMsg> sample;
    double received = 0.0;
  };
  struct Arrivals {
    std::vector<Frame> clouds;
    std::vector<ImuSample> imu_samples;
  };
  /// Waits until something arrives, at most for `patience`.
  Arrivals Take(std::chrono::milliseconds patience);
  LiveCounts Counts();
  DriverStatistics Statistics();
  /// Ends the driver: nothing arrives any more, and the counts add up.
  void Stop();

 private:
  void PutCloud(std::shared_ptr<Cloud> cloud);
  void PutImu(std::shared_ptr<ImuMsg> sample);
  void TakePacket(double received);

  Keep keep_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  Arrivals arrivals_;
  LiveCounts counts_;
  bool waits_for_calibration_;  ///< it was not in use as the frame began; the decoding thread's own
  Frame coming_;                ///< times of the frame that is being decoded; the decoding thread's own
  OrvaDriver<Cloud> driver_;    ///< last, so that its threads end before what they use goes
};

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_LIVE_SESSION_H_
