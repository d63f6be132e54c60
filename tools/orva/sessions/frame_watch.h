// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_FRAME_WATCH_H_
#define ORVA_TOOLS_SESSIONS_FRAME_WATCH_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "orva_driver.h"

namespace orva {

/// Judges frames by what the model's must hold. Packets that never reached this machine show nowhere else.
class FrameCounts {
 public:
  FrameCounts() = default;
  explicit FrameCounts(LidarType model);

  /// The first frame is a part of one, since listening begins anywhere in a sweep, and is not judged.
  void Add(std::size_t points);

  std::uint64_t frames() const { return frames_; }
  std::uint64_t incomplete() const { return incomplete_; }
  std::uint64_t merged() const { return merged_; }
  /// "3 of 100 frames incomplete, 1.4 % of their points missing; 1 merged with the next", or empty.
  std::string Text() const;

 private:
  std::size_t full_ = 0;  ///< points; 0: the model has none
  std::uint64_t frames_ = 0;
  std::uint64_t incomplete_ = 0;
  std::uint64_t merged_ = 0;
  std::uint64_t missing_points_ = 0;
};

/// Notices when a sensor that has sent falls silent, and when it is back.
class SilenceWatch {
 public:
  using Clock = std::chrono::steady_clock;
  /// Ten frames of the slowest sensor.
  static constexpr std::chrono::seconds kSilent{1};

  /// With the sensor's packets so far, often. Returns what is to be told, or empty.
  std::string Look(std::uint64_t packets, Clock::time_point now);
  /// For the summary: "silent 2 times, 5.2 s in all"; empty where it never was.
  std::string Text(Clock::time_point now) const;

 private:
  std::uint64_t packets_ = 0;
  Clock::time_point last_;  ///< when packets were last seen to come
  bool silent_ = false;
  std::uint64_t times_ = 0;
  std::chrono::duration<double> total_{0.0};
};

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_FRAME_WATCH_H_
