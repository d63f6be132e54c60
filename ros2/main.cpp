// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kernel_settings.h"
#include "options.h"
#include "recording.h"
#include "report_topics.h"
#include "sensor.h"
#include "sessions/calibration_files.h"
#include "shared/driver_log.h"
#include "shared/interrupt.h"
#include "shared/terminal.h"

namespace {

using Clock = std::chrono::steady_clock;
using orva::Say;
using orva::ros2::Options;

double Seconds(Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

void PublishSensors(const Options& options, const orva::ros2::Participant& participant) {
  std::vector<orva::ros2::Mounting> mountings;
  for (const orva::ros2::SensorSetup& setup : options.sensors) mountings.push_back(setup.mounting);
  orva::ros2::ReportTopics reports(participant, mountings);
  std::vector<std::unique_ptr<orva::ros2::Sensor>> sensors;
  for (const orva::ros2::SensorSetup& setup : options.sensors)
    sensors.push_back(std::make_unique<orva::ros2::Sensor>(setup, participant, options.delivery));
  const Clock::time_point start = Clock::now();
  Clock::time_point reported = start;
  while (!orva::Interrupted() &&
         (options.duration == 0 || Seconds(Clock::now() - start) < options.duration)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (const auto now = Clock::now(); now - reported >= std::chrono::seconds(1)) {
      std::vector<orva::messages::DiagnosticStatus> status;
      for (const auto& sensor : sensors) status.push_back(sensor->Diagnose(Seconds(now - reported)));
      reports.Publish(std::move(status));
      reported = now;
    }
  }
  for (const auto& sensor : sensors) Say(sensor->Summary());
}

void Run(const Options& options) {
  for (const orva::ros2::SensorSetup& setup : options.sensors) {
    if (options.sensors.size() > 1) orva::SpeakFor(setup.name);
    orva::CheckCalibration(setup.param, setup.uncalibrated);
  }
  orva::SpeakFor("");
  for (const std::string& advice : orva::ros2::KernelAdvice()) orva::Warn(advice);
  const orva::ros2::Participant participant;
  Say("publishing in the DDS domain " + std::to_string(participant.domain()));
  orva::CatchInterrupts();
  if (options.is_recording) {
    Say(orva::ros2::PublishRecording(options, participant));
  } else {
    PublishSensors(options, participant);
  }
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int kFailed = 1, kWrongUsage = 2;
  constexpr const char* kProgram = "orva-ros2";
  orva::CatchDriverLines();
  try {
    Options options;
    if (!orva::ros2::ReadOptions(argc, argv, options)) return 0;
    Run(options);
  } catch (const std::invalid_argument& error) {
    orva::Complain(error.what(), kProgram);
    return kWrongUsage;
  } catch (const std::exception& error) {
    const std::string said = orva::DriverComplaints();
    orva::Complain(error.what() + (said.empty() ? "" : "\nThe driver said:\n" + said), kProgram);
    return kFailed;
  }
  return 0;
}
