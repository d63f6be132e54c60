// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "commands/commands.h"
#include "formats/frame_export.h"
#include "formats/imu_file.h"
#include "formats/output_file.h"
#include "sessions/calibration_check.h"
#include "sessions/driver_options.h"
#include "sessions/live_session.h"
#include "sessions/packet_losses.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/terminal.h"

namespace orva {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kExamples =
    "Examples:\n"
    "  orva live --model TS4B --port 6699 --calib calib/\n"
    "  orva live --model TS6 --port 6699 --sensor 192.168.1.200 --command-port 6690 \\\n"
    "      --frames 100 --out clouds/ --format pcd,ply --imu imu.csv\n"
    "Ctrl-C ends it, and completes the files.\n";

struct LiveOptions {
  DriverParam param = OpenParam(ONLINE);
  ExportOptions files;
  std::string imu;
  double seconds = 0.0;
  std::uint64_t frames = 0;
};

std::string CalibrationText(const DriverParam& param, const DriverStatistics& statistics) {
  if (!TraitsOf(param.lidar_type).uses_calibration) {
    return "not needed";
  }
  switch (statistics.calibration) {
    case CALIBRATION_NONE:
      return "none";
    case CALIBRATION_FROM_FOLDER:
      return "from the folder";
    case CALIBRATION_DOWNLOADING:
      return statistics.calibration_bytes == 0
                 ? "waiting for the sensor"
                 : "downloading, " + std::to_string(statistics.calibration_bytes) + " bytes so far";
    case CALIBRATION_FROM_SENSOR:
      return "from the sensor";
  }
  return "unknown";
}

double SecondsSinceEpoch() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// Prints the line of every second from the difference to the second before.
class StatusLine {
 public:
  explicit StatusLine(const DriverParam& param) : param_(param) {}

  void PrintIfDue(LiveSession& session) {
    const Clock::time_point now = Clock::now();
    if (now - last_ < std::chrono::seconds(1)) {
      return;
    }
    const LiveCounts counts = session.Counts();
    const DriverStatistics statistics = session.Statistics();
    const double seconds = std::chrono::duration<double>(now - last_).count();
    const auto rate = [seconds](std::uint64_t after, std::uint64_t before) {
      return static_cast<double>(after - before) / seconds;
    };
    std::array<char, 160> text;
    std::snprintf(text.data(), text.size(), "%4.0f s %6.1f frames/s %7.1f kpoints/s", Elapsed(now),
                  rate(counts.frames, before_.frames), rate(counts.points, before_.points) / 1000.0);
    std::string line = text.data();
    if (TraitsOf(param_.lidar_type).has_imu) {
      std::snprintf(text.data(), text.size(), " %6.1f IMU/s", rate(counts.imu_samples, before_.imu_samples));
      line += text.data();
    }
    line += "  calibration: " + CalibrationText(param_, statistics);
    const std::string losses = LossText(statistics);
    if (!losses.empty()) {
      line += "  " + losses;
    }
    if (counts.missed > 0) {
      line += "  not stored: " + std::to_string(counts.missed);
    }
    Say(line);
    before_ = counts;
    last_ = now;
  }

  double Elapsed(Clock::time_point now) const { return std::chrono::duration<double>(now - start_).count(); }

 private:
  const DriverParam& param_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point last_ = start_;
  LiveCounts before_;
};

void Conclude(const LiveOptions& options, const LiveCounts& counts, const DriverStatistics& statistics) {
  const ModelTraits& model = TraitsOf(options.param.lidar_type);
  RequireArrivals(options.param, statistics);
  if (statistics.decoded == 0 && statistics.refused_length + statistics.refused_identifier > 0) {
    throw Failure("what arrives on port " + std::to_string(options.param.input_param.msop_port) +
                  " are no packets of the model " + model.name + " (" + LossText(statistics) +
                  "). Check --model and --port.");
  }
  if (!model.has_points) {
    Say(std::string("The driver decodes no points of a ") + model.name + ", so a live one gives no frame.");
    return;
  }
  Say(std::to_string(counts.frames) + " frames, " + std::to_string(counts.points) + " points, " +
      std::to_string(counts.imu_samples) + " IMU samples from " + std::to_string(statistics.received) +
      " packets; calibration: " + CalibrationText(options.param, statistics));
  const std::string losses = LossText(statistics);
  Say(losses.empty() ? "No packet was lost on this machine." : losses);
}

void Live(const LiveOptions& options) {
  FrameExport files(options.files, options.param);
  std::optional<ImuFile> imu;
  if (!options.param.calib_from_lidar) {
    CheckCalibration(options.param.lidar_type, options.param.calibration_param.calib_folder);
  }
  files.Open();
  if (!options.imu.empty()) {
    imu.emplace(options.imu, options.files.existing);
  }
  CatchInterrupts();

  LiveSession session(options.param, files.wanted(), files.takes_imu() || imu.has_value());
  Say("listening on UDP port " + std::to_string(options.param.input_param.msop_port) + "; Ctrl-C ends");
  StatusLine status(options.param);
  int stored = 0;
  bool over = false;
  while (!over) {
    // Looked at before the queue is taken: what has arrived by then is stored still.
    over = Interrupted() || (options.seconds > 0.0 && status.Elapsed(Clock::now()) >= options.seconds) ||
           (options.frames > 0 && session.Counts().frames >= options.frames);
    const LiveSession::Arrivals arrivals = session.Take(std::chrono::milliseconds(over ? 0 : 50));
    for (const auto& [cloud, first_packet, last_packet] : arrivals.clouds) {
      if (options.frames == 0 || static_cast<std::uint64_t>(stored) < options.frames) {
        files.Write(*cloud, {.model = options.param.lidar_type,
                             .number = stored++,
                             .first_packet = first_packet,
                             .last_packet = last_packet});
      }
    }
    for (const auto& [sample, received] : arrivals.imu_samples) {
      files.WriteImu(*sample, received);
      if (imu) {
        imu->Write(*sample);
      }
    }
    files.WriteStatus(session.Statistics(), SecondsSinceEpoch());
    status.PrintIfDue(session);
  }
  if (imu) {
    imu->Commit();
    Say("IMU samples are in " + options.imu);
  }
  files.Commit();
  if (files.files() > 0) {
    Say(files.Summary());
  }
  const DriverStatistics statistics = session.Stop();
  Conclude(options, session.Counts(), statistics);
}

void AddSourceOptions(CLI::App& command, DriverParam& param) {
  AddModelOption(command, param.lidar_type)->required();
  AddListenOptions(command, param.input_param);
  command
      .add_option("--calib", param.calibration_param.calib_folder, "Folder of the sensor's calibration files")
      ->type_name("FOLDER");
  AddSensorOptions(command, param);
}

}  // namespace

void AddLive(CLI::App& app) {
  CLI::App* command = app.add_subcommand("live", "Watch a live sensor, and store what it sees");
  const auto options = std::make_shared<LiveOptions>();
  AddSourceOptions(*command, options->param);
  AddDurationOption(*command, options->seconds);
  command->add_option("--frames", options->frames, "End after so many frames")
      ->check(CLI::PositiveNumber)
      ->type_name("N");
  AddExportOptions(*command, options->files);
  command->add_option("--imu", options->imu, "File for the IMU samples (CSV; TS6 and NV2)")
      ->type_name("FILE");
  AddDecoderOptions(*command, options->param.decoder_param);
  command->footer(kExamples);
  command->callback([options] { Live(*options); });
}

}  // namespace orva
