// SPDX-License-Identifier: Apache-2.0
#include "metrics/live_reports.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <vector>

#include "shared/json.h"
#include "shared/models.h"
#include "shared/standard_output.h"
#include "shared/terminal.h"

namespace orva {
namespace {

const char* CalibrationWord(CalibrationState state) {
  switch (state) {
    case CALIBRATION_NONE:
      return "none";
    case CALIBRATION_FROM_FOLDER:
      return "folder";
    case CALIBRATION_DOWNLOADING:
      return "downloading";
    case CALIBRATION_FROM_SENSOR:
      return "sensor";
  }
  return "unknown";
}

JsonObject Json(const SensorCounts& sensor, const char* type, double elapsed) {
  const DriverStatistics& statistics = sensor.statistics;
  JsonObject packets;
  packets.Add("received", statistics.received)
      .Add("received_bytes", statistics.received_bytes)
      .Add("decoded", statistics.decoded)
      .Add("queued", statistics.queued)
      .Add("kernel_dropped", statistics.kernel_dropped)
      .Add("discarded", statistics.discarded)
      .Add("refused_length", statistics.refused_length)
      .Add("refused_identifier", statistics.refused_identifier)
      .Add("empty", statistics.not_for_us)
      .Add("out_of_memory", statistics.out_of_memory);
  JsonObject line;
  line.Add("type", type);
  if (!sensor.name.empty()) line.Add("sensor", sensor.name);
  line.Add("model", sensor.model)
      .Add("elapsed", elapsed)
      .Add("frames", sensor.counts.frames)
      .Add("points", sensor.counts.points)
      .Add("imu_samples", sensor.counts.imu_samples)
      .Add("incomplete_frames", sensor.counts.judged.incomplete())
      .Add("merged_frames", sensor.counts.judged.merged())
      .Add("uncalibrated_frames", sensor.counts.uncalibrated)
      .Add("not_stored", sensor.counts.missed)
      .Add("calibration", CalibrationWord(statistics.calibration))
      .Add("calibration_bytes", statistics.calibration_bytes)
      .Add("packets", packets);
  return line;
}

}  // namespace

LiveReports::LiveReports(const LiveReportOptions& options) : json_(options.json) {
  if (!options.metrics) return;
  server_ = std::make_unique<MetricsServer>(*options.metrics);
  Say("metrics: http://" + options.metrics->host + ":" + std::to_string(server_->port()) + "/metrics");
}

void LiveReports::Status(const SensorCounts& sensor, double elapsed, bool last) {
  const std::lock_guard lock(mutex_);
  if (json_) PrintResult(Json(sensor, last ? "summary" : "status", elapsed).Text() + "\n");
  sensors_[sensor.name] = sensor;
  Publish();
}

void LiveReports::Failed(const std::string& name, const std::string& reason) {
  const std::lock_guard lock(mutex_);
  // Its last counts would pass for those of a sensor that is watched.
  sensors_.erase(name);
  Publish();
  if (!json_) return;
  JsonObject line;
  line.Add("type", "summary");
  if (!name.empty()) line.Add("sensor", name);
  line.Add("error", reason);
  PrintResult(line.Text() + "\n");
}

void LiveReports::Publish() {
  if (server_ == nullptr) return;
  std::vector<SensorCounts> all;
  for (const auto& [name, counts] : sensors_) all.push_back(counts);
  server_->Publish(MetricsText(all));
}

void AddLiveReportOptions(CLI::App& command, LiveReportOptions& options) {
  command.add_flag("--json", options.json,
                   "A JSON object a line on standard output, each second and at the end");
  const auto parse = [&options](const CLI::results_t& words) {
    const std::string& text = words.front();
    const size_t colon = text.rfind(':');
    MetricsAddress address;
    if (colon != std::string::npos) address.host = text.substr(0, colon);
    const char* const begin = text.data() + (colon == std::string::npos ? 0 : colon + 1);
    const char* const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(begin, end, address.port);
    if (error != std::errc() || at != end || address.host.empty()) {
      throw CLI::ValidationError("--metrics", "'" + text + "' is no port, as in 9100 or 0.0.0.0:9100");
    }
    options.metrics = address;
    return true;
  };
  command
      .add_option("--metrics", parse,
                  "Serve the counts at /metrics for Prometheus; on loopback without an IP")
      ->type_name("[IP:]PORT");
}

}  // namespace orva
