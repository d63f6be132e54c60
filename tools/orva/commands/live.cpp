// SPDX-License-Identifier: Apache-2.0
#include <pthread.h>

#include <CLI/CLI.hpp>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "commands/commands.h"
#include "config/sensors.h"
#include "formats/frame_export.h"
#include "formats/imu_file.h"
#include "formats/output_file.h"
#include "metrics/live_reports.h"
#include "sessions/calibration_files.h"
#include "sessions/driver_options.h"
#include "sessions/live_session.h"
#include "sessions/other_listeners.h"
#include "sessions/packet_losses.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/numbers.h"
#include "shared/terminal.h"
#include "shared/words.h"

namespace orva {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kLiveExamples =
    "Examples:\n"
    "  orva live --model TS4B --port 6699 --calib calib/\n"
    "  orva live --model TS6 --port 6699 --sensor 192.168.1.200 --command-port 6690 \\\n"
    "      --frames 100 --out clouds/ --format pcd,ply --imu imu.csv\n"
    "  orva live --config car.toml --metrics 9100\n"
    "Ctrl-C ends it, and completes the files.\n";

struct LiveOptions {
  std::string name;  ///< of the sensor, where there are several
  DriverParam param = OpenParam(ONLINE);
  bool uncalibrated = false;  ///< wanted
  ExportOptions files;
  std::string imu;
  double seconds = 0.0;
  std::uint64_t frames = 0;
  LiveReportOptions reports;
  std::string config;
};

std::string CalibrationOf(const DriverParam& param, const DriverStatistics& statistics) {
  const bool marked =
      TraitsOf(param.lidar_type).uses_calibration && statistics.calibration == CALIBRATION_NONE;
  return CalibrationText(param.lidar_type, statistics) + (marked ? ", uncalibrated" : "");
}

double SecondsSinceEpoch() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// Prints the line of every second from the difference to the second before.
class StatusLine {
 public:
  StatusLine(const LiveOptions& options, LiveReports& reports)
      : options_(options), param_(options.param), reports_(reports) {}

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
    line += "  calibration: " + CalibrationOf(param_, statistics);
    if (const std::string frames = counts.judged.Text(); !frames.empty()) {
      line += "  " + frames;
    }
    const std::string losses = LossText(statistics);
    if (!losses.empty()) {
      line += "  " + losses;
    }
    const std::string refused = RefusalText(statistics);
    if (!refused.empty()) {
      line += "  refused: " + refused;
    }
    if (counts.missed > 0) {
      line += "  not stored: " + std::to_string(counts.missed);
    }
    Say(line);
    Report(counts, statistics, false);
    before_ = counts;
    last_ = now;
  }

  /// Tells of a sensor that falls silent, and of one that is back. What others send to its port is no sign of
  /// life.
  void LookForSilence(std::uint64_t decoded) {
    const Clock::time_point now = Clock::now();
    if (const std::string news = silence_.Look(decoded, now); !news.empty()) {
      std::array<char, 32> time;
      std::snprintf(time.data(), time.size(), "%4.0f s ", Elapsed(now));
      Warn(time.data() + news);
    }
  }
  std::string Silence() const { return silence_.Text(Clock::now()); }

  /// `last`: the run is over.
  void Report(const LiveCounts& counts, const DriverStatistics& statistics, bool last) const {
    reports_.Status({options_.name, TraitsOf(param_.lidar_type).name, counts, statistics},
                    Elapsed(Clock::now()), last);
  }

  double Elapsed(Clock::time_point now) const { return std::chrono::duration<double>(now - start_).count(); }

 private:
  const LiveOptions& options_;
  const DriverParam& param_;
  LiveReports& reports_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point last_ = start_;
  LiveCounts before_;
  SilenceWatch silence_;
};

/// The frames before the calibration that --sensor asked for.
void TellUncalibrated(const LiveOptions& options, const LiveCounts& counts) {
  if (counts.uncalibrated == 0 || options.files.folder.empty()) {
    return;
  }
  const std::string frames = Counted(counts.uncalibrated, "frame", "frames");
  if (options.uncalibrated) {
    Warn("the first " + frames + " came before the calibration and are stored uncalibrated.");
  } else if (counts.uncalibrated < counts.frames) {
    Say("The first " + frames +
        " came before the calibration and were held back; --uncalibrated stores them.");
  } else {
    throw Failure(
        "no frame is stored: the calibration did not come whole from " +
        options.param.calibration_param.lidar_ip + ", and " + frames +
        " were held back. Check --sensor and --command-port; --uncalibrated stores frames without.");
  }
}

void Conclude(const LiveOptions& options, const LiveCounts& counts, const DriverStatistics& statistics,
              const std::string& silence) {
  const ModelTraits& model = TraitsOf(options.param.lidar_type);
  RequireArrivals(options.param, statistics);
  if (statistics.decoded == 0 && statistics.refused_length + statistics.refused_identifier > 0) {
    throw Failure("what arrives on port " + std::to_string(options.param.input_param.msop_port) +
                  " are no packets of the model " + model.name + " (" + RefusalText(statistics) +
                  "). Check --model and --port.");
  }
  if (!model.has_points) {
    Say("The driver decodes no points of " + OneOf(options.param.lidar_type) +
        ", so a live one gives no frame.");
    return;
  }
  Say(std::to_string(counts.frames) + " frames, " + std::to_string(counts.points) + " points, " +
      std::to_string(counts.imu_samples) + " IMU samples from " + std::to_string(statistics.received) +
      " packets; calibration: " + CalibrationOf(options.param, statistics));
  const std::string frames = counts.judged.Text();
  const std::string losses = LossText(statistics);
  if (!frames.empty()) {
    Warn(frames + ".");
  }
  if (!silence.empty()) {
    Warn(silence + ".");
  }
  if (const std::string refused = RefusalText(statistics); !refused.empty()) {
    Warn("refused: " + refused + ".");
  }
  if (counts.missed > 0) {
    Warn("not stored: " + Counted(counts.missed, "frame or IMU sample", "frames or IMU samples") +
         ", the disk is too slow.");
  }
  if (!losses.empty()) {
    Warn(losses + ".");
  } else if (!frames.empty()) {
    Say("No packet was lost on this machine: what is missing did not reach it.");
  } else if (counts.frames > 1 && silence.empty() && counts.missed == 0) {
    Say("Every frame is complete; no packet was lost on this machine.");
  } else {
    Say("No packet was lost on this machine.");
  }
  TellUncalibrated(options, counts);
}

/// Frames towards --frames: without those that are held back.
std::uint64_t FramesThatCount(const LiveOptions& options, const LiveCounts& counts) {
  return options.uncalibrated ? counts.frames : counts.frames - counts.uncalibrated;
}

void Live(const LiveOptions& options, LiveReports& reports) {
  FrameExport files(options.files, options.param);
  std::optional<ImuFile> imu;
  const bool uncalibrated = CheckCalibration(options.param, options.uncalibrated);
  files.Open();
  if (!options.imu.empty()) {
    imu.emplace(options.imu, options.files.existing);
  }
  CatchInterrupts();

  WarnOfOtherListeners(options.param.input_param);
  LiveSession session(options.param, {.clouds = files.wanted(),
                                      .imu = files.takes_imu() || imu.has_value(),
                                      .uncalibrated = options.uncalibrated});
  Say("listening on UDP port " + std::to_string(options.param.input_param.msop_port) + "; Ctrl-C ends");
  StatusLine status(options, reports);
  int stored = 0;
  bool over = false;
  while (!over) {
    over = Interrupted() || (options.seconds > 0.0 && status.Elapsed(Clock::now()) >= options.seconds) ||
           (options.frames > 0 && FramesThatCount(options, session.Counts()) >= options.frames);
    if (over) {
      session.Stop();  // what has arrived by then is stored still, and nothing comes behind it
    }
    const LiveSession::Arrivals arrivals = session.Take(std::chrono::milliseconds(over ? 0 : 50));
    for (const auto& [cloud, first_packet, last_packet, early] : arrivals.clouds) {
      if (options.frames == 0 || static_cast<std::uint64_t>(stored) < options.frames) {
        files.Write(*cloud, {.model = options.param.lidar_type,
                             .number = stored++,
                             .first_packet = first_packet,
                             .last_packet = last_packet,
                             .uncalibrated = uncalibrated || early});
      }
    }
    for (const auto& [sample, received] : arrivals.imu_samples) {
      files.WriteImu(*sample, received);
      if (imu) {
        imu->Write(*sample);
      }
    }
    const DriverStatistics now = session.Statistics();
    files.WriteStatus(now, SecondsSinceEpoch());
    if (!over) {
      status.LookForSilence(now.decoded);
    }
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
  const DriverStatistics statistics = session.Statistics();
  status.Report(session.Counts(), statistics, true);
  Conclude(options, session.Counts(), statistics, status.Silence());
}

/// The options of one sensor of a configuration file; what it does not say stays as the command line has it.
LiveOptions OptionsOf(const config::Sensor& sensor, const LiveOptions& common) {
  LiveOptions options = common;
  options.name = sensor.name;
  options.param = sensor.param;
  options.uncalibrated = sensor.uncalibrated || common.uncalibrated;
  options.files.folder = sensor.out;
  options.files.mcap.cloud.frame_id = sensor.frame_id;
  if (!sensor.formats.empty()) {
    options.files.formats = sensor.formats;
  }
  options.imu = sensor.imu;
  return options;
}

/// Runs every sensor on a thread of its own. One that fails does not end the others; it ends the program with
/// an error once they have ended too.
void LiveSeveral(const LiveOptions& common, LiveReports& reports) {
  std::vector<LiveOptions> sensors;
  try {
    for (const config::Sensor& sensor : config::ReadSensors(common.config)) {
      sensors.push_back(OptionsOf(sensor, common));
    }
  } catch (const config::Error& error) {
    throw Failure(error.what());
  }
  CatchInterrupts();
  std::atomic<std::size_t> failed = 0;
  {
    std::vector<std::jthread> threads;
    for (const LiveOptions& options : sensors) {
      threads.emplace_back([&options, &reports, &failed] {
        pthread_setname_np(pthread_self(), "orva-sensor");
        SpeakFor(options.name);
        try {
          Live(options, reports);
        } catch (const std::exception& error) {
          ++failed;
          Complain(error.what());
          reports.Failed(options.name, error.what());
        }
      });
    }
  }
  if (failed > 0) {
    throw Failure(std::to_string(failed) + " of " + std::to_string(sensors.size()) + " sensors failed.");
  }
}

void RunLive(const LiveOptions& options) {
  LiveReports reports(options.reports);
  if (!options.config.empty()) {
    LiveSeveral(options, reports);
    return;
  }
  if (options.param.lidar_type == 0 || options.param.input_param.msop_port == 0) {
    throw WrongUsage("a sensor needs --model and --port; several stand in a file, see --config");
  }
  try {
    Live(options, reports);
  } catch (const Failure& failure) {
    reports.Failed("", failure.what());
    throw;
  }
}

void AddSourceOptions(CLI::App& command, DriverParam& param) {
  AddModelOption(command, param.lidar_type);
  AddListenOptions(command, param.input_param);
  command.get_option("--port")->required(false);
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
  AddNumber(*command, "--frames", options->frames, 1, kMostCounted, "End after so many frames");
  AddExportOptions(*command, options->files);
  command->add_option("--imu", options->imu, "File for the IMU samples (CSV; TS6 and NV2)")
      ->type_name("FILE");
  AddUncalibratedOption(*command, options->uncalibrated);
  AddDecoderOptions(*command, options->param.decoder_param);
  AddLiveReportOptions(*command, options->reports);
  CLI::Option* config =
      command->add_option("--config", options->config, "Several sensors, each a section of a TOML file");
  config->type_name("FILE");
  for (const char* name : {"--model", "--port", "--host", "--calib", "--sensor", "--out", "--imu",
                           "--distance", "--azimuth", "--elevation", "--mount"}) {
    config->excludes(command->get_option(name));
  }
  command->footer(kLiveExamples);
  command->callback([options] { RunLive(*options); });
}

}  // namespace orva
