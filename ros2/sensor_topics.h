// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

#include "messages/from_driver.h"
#include "participant.h"

namespace orva::ros2 {

/// What became of a cloud.
enum class Outcome {
  kSent,
  kNoReader,  ///< nobody would have taken it
  kNotTaken,  ///< DDS took it not in time: no reader gets it
};

/// A sensor's points and IMU samples. Used by one thread at a time.
class SensorTopics {
 public:
  /// `space` is the namespace, "" or as "/front".
  SensorTopics(const Participant& participant, const std::string& space, Delivery delivery,
               messages::CloudOptions options);

  /// `captured`: when the frame's first packet was received, seconds since the epoch.
  Outcome Publish(const PointCloud<PointTime>& cloud, double captured);
  /// False where DDS took the sample not in time: no reader gets it.
  bool Publish(const ImuMsg& sample, double received);
  /// Have so many readers of the points found it, and of the IMU samples?
  bool HasReaders(int count) const;
  /// Until the reliable readers have everything, or for so long.
  void WaitForReaders(std::chrono::milliseconds longest) const;

 private:
  messages::CloudOptions options_;
  Entity points_;
  Entity imu_;
  messages::PointCloud2 message_;  ///< keeps its memory
};

}  // namespace orva::ros2
