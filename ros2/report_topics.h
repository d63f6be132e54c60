// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "messages/messages.h"
#include "participant.h"

namespace orva::ros2 {

/// Where a sensor sits: the frame of its points in the frame of whatever carries it.
struct Mounting {
  std::string parent;  ///< frame that it is given in, for example "base_link"; empty: there is no mounting
  std::string frame;   ///< of the sensor's points
  double x = 0.0;      ///< metres
  double y = 0.0;
  double z = 0.0;
  double roll = 0.0;  ///< degrees, Rz(yaw) * Ry(pitch) * Rx(roll)
  double pitch = 0.0;
  double yaw = 0.0;
};

/// The topics that all sensors of a process share, outside their namespaces. Used by one thread at a time.
class ReportTopics {
 public:
  /// The mountings go out at once, in one message, and are kept for readers that come later.
  ReportTopics(const Participant& participant, const std::vector<Mounting>& mountings);

  void Publish(std::vector<messages::DiagnosticStatus> status);

 private:
  Entity diagnostics_;
  Entity mountings_;
};

}  // namespace orva::ros2
