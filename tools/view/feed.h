// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_VIEW_FEED_H_
#define ORVA_TOOLS_VIEW_FEED_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "orva_driver.h"
#include "view/frame.h"

namespace orva::view {

using Clock = std::chrono::steady_clock;

/// What is shown, as far as it never changes.
struct Subject {
  bool live = false;
  std::string title;  ///< name of the recording, or where the sensor's packets arrive
  std::string model;
  bool has_imu = false;
  std::uint32_t frames = 0;  ///< of the recording
  double period = 0.1;       ///< seconds from frame to frame of the recording
  bool mounted = false;
  std::array<float, 6> mounting = {};  ///< x, y, z in metres, roll, pitch, yaw in degrees
};

/// Why there may be nothing to see, or not what was meant. `code` is for the page, `text` for the person.
struct Condition {
  std::string code = "ok";  ///< or no-packets, wrong-model, uncalibrated, downloading, no-points, no-frame
  std::string text;
};

/// Renewed once a second.
struct Status {
  std::uint64_t version = 0;  ///< counts the renewals; 0: none yet
  double seconds = 0.0;       ///< since the start
  DriverStatistics statistics;
  DriverStatistics before;   ///< of the renewal before
  double interval = 1.0;     ///< seconds between the two
  std::uint64_t missed = 0;  ///< frames that came faster than they could be prepared
  std::string calibration;
  Condition condition;
};

/// Where frames come from, for any number of clients. All calls are made on the server's thread, and none of
/// them waits for a frame.
class Feed {
 public:
  virtual ~Feed() = default;

  virtual const Subject& subject() const = 0;
  virtual Status status() = 0;

  /// Live: the newest frame; null until one came.
  virtual FramePtr Newest() = 0;
  /// Live: the samples behind number `taken`, which is moved on. Old ones are left out where it lags.
  virtual std::vector<ImuMsg> ImuSince(std::uint64_t& taken) = 0;

  /// Recording: `client` wants this frame, not before `due`, instead of the one that it wanted before and did
  /// not get yet.
  virtual void Want(std::uint64_t client, std::uint32_t frame, Clock::time_point due) = 0;
  /// Recording: what `client` wanted, once; null as long as it is not ready.
  virtual FramePtr TakeWanted(std::uint64_t client) = 0;

  /// The first and the last word of a client. Without clients nothing is prepared.
  virtual std::uint64_t Enter() = 0;
  virtual void Leave(std::uint64_t client) = 0;

  /// Ends the feed's own thread; there is nothing new from then on.
  virtual void Close() = 0;
};

}  // namespace orva::view

#endif  // ORVA_TOOLS_VIEW_FEED_H_
