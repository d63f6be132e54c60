// SPDX-License-Identifier: Apache-2.0
#include "metrics/live_metrics.h"

#include <cstdint>

namespace orva {
namespace {

using Statistics = DriverStatistics;

struct Metric {
  const char* name;
  const char* type;
  const char* help;
  uint64_t (*value)(const SensorCounts& sensor);
};
constexpr Metric kMetrics[] = {
    {"orva_packets_received_total", "counter", "Datagrams taken from the socket.",
     [](const SensorCounts& s) { return s.statistics.received; }},
    {"orva_received_bytes_total", "counter", "Their payload in bytes.",
     [](const SensorCounts& s) { return s.statistics.received_bytes; }},
    {"orva_packets_decoded_total", "counter", "Packets of the model.",
     [](const SensorCounts& s) { return s.statistics.decoded; }},
    {"orva_packets_queued", "gauge", "Packets that wait for the decoder.",
     [](const SensorCounts& s) { return s.statistics.queued; }},
    {"orva_frames_total", "counter", "Frames delivered.",
     [](const SensorCounts& s) { return s.counts.frames; }},
    {"orva_points_total", "counter", "Points of these frames, with those without a return.",
     [](const SensorCounts& s) { return s.counts.points; }},
    {"orva_incomplete_frames_total", "counter", "Frames with fewer points than the model's grid.",
     [](const SensorCounts& s) { return s.counts.judged.incomplete(); }},
    {"orva_imu_samples_total", "counter", "IMU samples delivered.",
     [](const SensorCounts& s) { return s.counts.imu_samples; }},
    {"orva_not_stored_total", "counter", "Frames and IMU samples that came faster than they were stored.",
     [](const SensorCounts& s) { return s.counts.missed; }},
    {"orva_calibrated", "gauge", "1 where the model's calibration is in use.",
     [](const SensorCounts& s) {
       return uint64_t{s.statistics.calibration == CALIBRATION_FROM_FOLDER ||
                       s.statistics.calibration == CALIBRATION_FROM_SENSOR};
     }},
    {"orva_calibration_bytes_total", "counter", "Bytes of calibration that the sensor has sent.",
     [](const SensorCounts& s) { return s.statistics.calibration_bytes; }},
};

struct Loss {
  const char* reason;
  uint64_t Statistics::*count;
};
constexpr Loss kLosses[] = {{"kernel", &Statistics::kernel_dropped},
                            {"queue", &Statistics::discarded},
                            {"wrong_length", &Statistics::refused_length},
                            {"wrong_identifier", &Statistics::refused_identifier},
                            {"empty", &Statistics::not_for_us},
                            {"memory", &Statistics::out_of_memory}};

std::string LabelText(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\n') {
      escaped += "\\n";
      continue;
    }
    if (c == '"' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string Labels(const SensorCounts& sensor) {
  std::string labels = "model=\"" + LabelText(sensor.model) + "\"";
  if (!sensor.name.empty()) labels += ",sensor=\"" + LabelText(sensor.name) + "\"";
  return labels;
}

std::string Head(const char* name, const char* type, const char* help) {
  return std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

}  // namespace

std::string MetricsText(std::span<const SensorCounts> sensors) {
  std::string text;
  for (const Metric& metric : kMetrics) {
    text += Head(metric.name, metric.type, metric.help);
    for (const SensorCounts& sensor : sensors) {
      text += std::string(metric.name) + "{" + Labels(sensor) + "} " + std::to_string(metric.value(sensor)) +
              "\n";
    }
  }
  constexpr const char* kLost = "orva_packets_lost_total";
  text += Head(kLost, "counter",
               "Datagrams that did not become points, by reason; for memory, times that it ran out.");
  for (const SensorCounts& sensor : sensors) {
    for (const Loss& loss : kLosses) {
      text += std::string(kLost) + "{" + Labels(sensor) + ",reason=\"" + loss.reason + "\"} " +
              std::to_string(sensor.statistics.*loss.count) + "\n";
    }
  }
  return text;
}

}  // namespace orva
