// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "messages/from_driver.h"
#include "sensor_topics.h"

namespace orva::ros2 {

/// What became of a sensor's frames and IMU samples between the driver and DDS.
struct Deliveries {
  uint64_t published = 0;
  uint64_t unread = 0;        ///< of those published, frames that had no reader
  uint64_t dropped = 0;       ///< frames that a later one overtook before they could go out
  uint64_t not_taken = 0;     ///< frames that DDS did not take in time
  uint64_t held_back = 0;     ///< frames that came before the calibration
  uint64_t samples_lost = 0;  ///< IMU samples, for any of these reasons

  void Add(Outcome outcome);
  /// A line for people: "front: 40 frames published", and what is not zero of the others.
  std::string Summary(const std::string& name) const;
};

/// The driver's counters and these, as one status. `before` are those of the last call, `seconds` ago. The
/// level is WARN also where frames or samples were lost on the way to DDS since then.
messages::DiagnosticStatus Diagnose(const DriverStatistics& now, const DriverStatistics& before,
                                    const Deliveries& deliveries, const Deliveries& deliveries_before,
                                    double seconds, const messages::DiagnosticSource& source);

}  // namespace orva::ros2
