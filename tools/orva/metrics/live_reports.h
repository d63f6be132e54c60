// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_METRICS_LIVE_REPORTS_H_
#define ORVA_TOOLS_METRICS_LIVE_REPORTS_H_

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "metrics/live_metrics.h"
#include "metrics/metrics_server.h"

namespace CLI {
class App;
}

namespace orva {

struct LiveReportOptions {
  bool json = false;                        ///< lines on standard output
  std::optional<MetricsAddress> metrics{};  ///< served there
};

/// Adds --json and --metrics.
void AddLiveReportOptions(CLI::App& command, LiveReportOptions& options);

/// What live runs tell machines about their sensors. For several threads, one for each sensor.
class LiveReports {
 public:
  /// Throws Failure where metrics cannot be served.
  explicit LiveReports(const LiveReportOptions& options);

  /// Once a second, and at the end.
  void Status(const SensorCounts& sensor, double elapsed, bool last);
  /// Instead of the end, for a sensor whose run failed: its counts are served no more.
  void Failed(const std::string& name, const std::string& reason);

 private:
  void Publish();

  const bool json_;
  std::mutex mutex_;
  std::map<std::string, SensorCounts> sensors_;
  std::unique_ptr<MetricsServer> server_;
};

}  // namespace orva

#endif  // ORVA_TOOLS_METRICS_LIVE_REPORTS_H_
