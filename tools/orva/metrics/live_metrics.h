// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_METRICS_LIVE_METRICS_H_
#define ORVA_TOOLS_METRICS_LIVE_METRICS_H_

#include <span>
#include <string>

#include "orva_driver.h"
#include "sessions/live_session.h"

namespace orva {

/// What one sensor has given up to a moment.
struct SensorCounts {
  std::string name;   ///< empty: there is only one
  std::string model;  ///< "TS4B"
  LiveCounts counts;
  DriverStatistics statistics;
};

/// The counts of all sensors in Prometheus' text format, version 0.0.4.
std::string MetricsText(std::span<const SensorCounts> sensors);

}  // namespace orva

#endif  // ORVA_TOOLS_METRICS_LIVE_METRICS_H_
