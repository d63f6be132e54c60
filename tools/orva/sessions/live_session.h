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

#include "shared/cloud.h"

namespace orva {

/// Counts since the start.
struct LiveCounts {
  std::uint64_t frames = 0;
  std::uint64_t points = 0;
  std::uint64_t imu_samples = 0;
  std::uint64_t missed = 0;  ///< frames and IMU samples that came faster than they were taken
};

/// A driver on a live sensor. Its callbacks only count and queue, so that a slow disk never holds up the
/// driver; what does not fit the queue is counted as missed.
class LiveSession {
 public:
  /// With `keep_clouds` or `keep_imu` false these are counted, and not queued. Throws Failure.
  LiveSession(const DriverParam& param, bool keep_clouds, bool keep_imu);
  LiveSession(const LiveSession&) = delete;
  LiveSession& operator=(const LiveSession&) = delete;

  /// Times are when packets were received, seconds since the epoch.
  struct Frame {
    std::shared_ptr<Cloud> cloud;
    double first_packet = 0.0;
    double last_packet = 0.0;
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
  /// Ends the driver, so that its counts add up, and returns them.
  DriverStatistics Stop();

 private:
  void PutCloud(std::shared_ptr<Cloud> cloud);
  void PutImu(std::shared_ptr<ImuMsg> sample);
  void TakePacket(double received);

  bool keep_clouds_;
  bool keep_imu_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  Arrivals arrivals_;
  LiveCounts counts_;
  Frame coming_;              ///< times of the frame that is being decoded; the decoding thread's own
  OrvaDriver<Cloud> driver_;  ///< last, so that its threads end before what they use goes
};

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_LIVE_SESSION_H_
