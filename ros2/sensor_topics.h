// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

#include "messages/from_driver.h"
#include "participant.h"

namespace orva::ros2 {

/// Where a sensor sits: the frame of its points in the frame of whatever carries it.
struct Mounting {
  std::string parent;  ///< frame that it is given in, for example "base_link"
  double x = 0.0;      ///< metres
  double y = 0.0;
  double z = 0.0;
  double roll = 0.0;  ///< degrees, Rz(yaw) * Ry(pitch) * Rx(roll)
  double pitch = 0.0;
  double yaw = 0.0;
};

/// The topics of one sensor. Used by one thread at a time.
class SensorTopics {
 public:
  /// `space` is the namespace, "" or as "/front".
  SensorTopics(const Participant& participant, const std::string& space, Delivery delivery,
               messages::CloudOptions options);

  /// `captured`: when the frame's first packet was received, seconds since the epoch. False where DDS took
  /// the cloud not in time: no reader gets it.
  bool Publish(const PointCloud<PointTime>& cloud, double captured);
  bool Publish(const ImuMsg& sample, double received);
  void Publish(const DriverStatistics& now, const DriverStatistics& before, double seconds,
               const messages::DiagnosticSource& source);
  /// Have so many readers of the points found it, and of the IMU samples?
  bool HasReaders(int count) const;
  /// Until the reliable readers have everything, or for so long.
  void WaitForReaders(std::chrono::milliseconds longest) const;
  /// Kept for readers that come later.
  void Publish(const Mounting& mounting);

 private:
  messages::CloudOptions options_;
  Entity points_;
  Entity imu_;
  Entity diagnostics_;
  Entity mounting_;
  messages::PointCloud2 message_;  ///< keeps its memory
};

}  // namespace orva::ros2
