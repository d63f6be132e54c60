// SPDX-License-Identifier: Apache-2.0
#include "deliveries.h"

#include <utility>

namespace orva::ros2 {

void Deliveries::Add(Outcome outcome) {
  published += outcome != Outcome::kNotTaken;
  unread += outcome == Outcome::kNoReader;
  not_taken += outcome == Outcome::kNotTaken;
}

std::string Deliveries::Summary(const std::string& name) const {
  std::string text = name + ": " + std::to_string(published) + " frames published";
  const auto add = [&text](uint64_t count, const char* what) {
    if (count > 0) text += ", " + std::to_string(count) + what;
  };
  add(unread, " of them had no reader");
  add(dropped, " dropped: publishing takes longer than a frame");
  add(not_taken, " not sent: a reliable reader did not keep up");
  add(held_back, " held back until the calibration was in use");
  add(samples_lost, " IMU samples lost");
  return text;
}

messages::DiagnosticStatus Diagnose(const DriverStatistics& now, const DriverStatistics& before,
                                    const Deliveries& deliveries, const Deliveries& deliveries_before,
                                    double seconds, const messages::DiagnosticSource& source) {
  messages::DiagnosticArray message = messages::ToDiagnostics(now, before, seconds, {}, source);
  messages::DiagnosticStatus status = std::move(message.status.front());
  const auto lost = [](const Deliveries& counts) {
    return counts.dropped + counts.not_taken + counts.samples_lost;
  };
  if (const uint64_t more = lost(deliveries) - lost(deliveries_before); more > 0) {
    status.message += ", " + std::to_string(more) + " frames or IMU samples not published";
    if (status.level == messages::DiagnosticStatus::OK) status.level = messages::DiagnosticStatus::WARN;
  }
  const auto add = [&status](const char* key, uint64_t count) {
    status.values.push_back({key, std::to_string(count)});
  };
  add("frames published", deliveries.published);
  add("frames without a reader", deliveries.unread);
  add("frames dropped before publishing", deliveries.dropped);
  add("frames not sent in time", deliveries.not_taken);
  add("frames held back until calibrated", deliveries.held_back);
  add("IMU samples not published", deliveries.samples_lost);
  return status;
}

}  // namespace orva::ros2
