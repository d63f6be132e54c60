// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "call_lock.h"
#include "frame.h"

namespace orva_python {

/// A driver on a live sensor. Its callbacks only queue: where Python is too slow, the oldest clouds and IMU
/// samples are dropped and counted, and the driver never waits.
template <typename PC>
class LiveSession {
 public:
  struct Counts {
    std::uint64_t dropped = 0;      ///< clouds that were not taken in time
    std::uint64_t dropped_imu = 0;  ///< IMU samples likewise
    std::uint64_t held_back = 0;    ///< clouds from before the calibration was in use
  };

  /// Listens from now on. With `uncalibrated` clouds come also before the calibration is in use. Throws
  /// Refused.
  LiveSession(const DriverParam& param, std::size_t queue, bool uncalibrated);
  ~LiveSession() { Close(); }
  LiveSession(const LiveSession&) = delete;
  LiveSession& operator=(const LiveSession&) = delete;

  /// The oldest cloud in the queue; waits for one up to `seconds`, without a number for ever. Empty when none
  /// came, and when the session was closed meanwhile. Throws Refused when the calibration that clouds are
  /// held back for does not come any more.
  std::optional<Frame<PC>> Take(std::optional<double> seconds, const Check& check);
  /// The samples that wait, oldest first.
  std::vector<ImuMsg> TakeImu();
  Counts Read();
  DriverStatistics Statistics(const Check& check);

  /// Ends the driver's threads. Harmless when repeated.
  void Close();
  bool InOwnProcess() const { return calls_.InOwnProcess(); }
  bool closed() const { return closed_; }

 private:
  std::shared_ptr<PC> GetCloud();
  void PutCloud(std::shared_ptr<PC> cloud);
  void PutImu(const ImuMsg& sample);
  bool CalibrationInUse();

  const std::size_t most_clouds_;
  const bool holds_back_;
  CallLock calls_;

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Frame<PC>> clouds_;
  std::deque<ImuMsg> imu_samples_;
  Counts counts_;
  std::uint64_t frames_ = 0;
  std::atomic<bool> closed_{false};

  // Of the decoding thread, once it runs.
  bool running_ = false;
  std::size_t usual_size_ = 0;
  double received_ = 0.0;
  bool calibrated_ = false;  ///< the calibration was in use when the current cloud began

  OrvaDriver<PC> driver_;  ///< last: its threads end before what they use
};

}  // namespace orva_python
