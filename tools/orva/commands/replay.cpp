// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "formats/frame_export.h"
#include "sessions/calibration_files.h"
#include "sessions/driver_options.h"
#include "sessions/frame_selection.h"
#include "sessions/recording.h"
#include "sessions/replay_session.h"
#include "shared/failure.h"
#include "shared/frame_table.h"
#include "shared/interrupt.h"
#include "shared/json.h"
#include "shared/models.h"
#include "shared/standard_output.h"
#include "shared/terminal.h"

namespace orva {
namespace {

constexpr const char* kReplayExamples =
    "Examples:\n"
    "  orva replay street.pcap --model TS4B --calib calib/\n"
    "      shows what the recording holds\n"
    "  orva replay street.pcap --model TS4B --calib calib/ --frames 0-4,7 \\\n"
    "      --out clouds/\n"
    "      writes clouds/frame_0000.pcd and so on\n"
    "  orva replay street.pcap --model TS6 --calib calib/ --port 6699 \\\n"
    "      --distance 0.5 80 --mount 0 0 1.8 0 2.5 0 \\\n"
    "      --format pcd,ply,csv --out clouds/\n"
    "  orva replay street.pcap --model TS4B --calib calib/ --format mcap \\\n"
    "      --out street.mcap\n"
    "      writes all frames, as messages of ROS 2, into one file\n";

struct ReplayOptions {
  DriverParam param = OpenParam(PCAP);
  std::string frames = "all";
  bool uncalibrated = false;  ///< wanted
  ExportOptions files;
  bool json = false;
};

std::string FrameJson(int frame, int part, const Cloud& cloud, std::size_t valid, const FrameOrigin& origin) {
  JsonObject line;
  line.Add("type", "frame")
      .Add("frame", frame)
      .Add("part", part)
      .Add("points", cloud.points.size())
      .Add("valid", valid)
      .Add("timestamp", cloud.timestamp)
      .Add("first_packet", origin.first_packet)
      .Add("last_packet", origin.last_packet)
      .Add("imu_samples", origin.imu.size())
      .Add("temperature_a", cloud.temperature_a)
      .Add("temperature_b", cloud.temperature_b)
      .Add("status_word", cloud.status_word)
      .Add("status_byte", cloud.status_byte);
  return line.Text() + "\n";
}

/// ", 3.5 million points/s, 95 MB/s" of what is in the files. `seconds` from the end of the index on.
std::string Speed(const RecordingSummary& summary, const FrameExport& files, double seconds) {
  std::array<char, 64> text;
  seconds = std::max(seconds, 1e-6);
  std::snprintf(text.data(), text.size(), ", %.1f million points/s, %.0f MB/s",
                static_cast<double>(summary.points()) / seconds * 1e-6,
                static_cast<double>(files.bytes()) / seconds * 1e-6);
  return text.data();
}

/// The counts are sums over the frames that were chosen.
std::string SummaryJson(const ReplayOptions& options, const RecordingSummary& summary,
                        const FrameExport& files, bool uncalibrated, double seconds) {
  JsonObject line;
  line.Add("type", "summary")
      .Add("file", options.param.input_param.pcap_path)
      .Add("model", TraitsOf(options.param.lidar_type).name)
      .Add("clouds", summary.clouds())
      .Add("points", summary.points())
      .Add("valid", summary.valid())
      .Add("uncalibrated", uncalibrated)
      .Add("files", files.files())
      .Add("bytes", files.bytes())
      .Add("seconds", seconds);
  return line.Text() + "\n";
}

void Replay(const ReplayOptions& options) {
  FrameExport files(options.files, options.param);
  CheckFrameList(options.frames);
  CatchInterrupts();

  const bool uncalibrated = CheckCalibration(options.param, options.uncalibrated);
  ReplaySession session(options.param);
  const std::vector<int> frames = IndexWithProgress(session, options.frames);
  files.Open(frames);

  RecordingSummary summary(options.param.lidar_type);
  const auto began = std::chrono::steady_clock::now();
  {
    Progress progress("replaying", static_cast<int>(frames.size()));
    if (!options.json) {
      progress.Line(FrameTableHead());
    }
    session.Play(frames, [&](int frame, int part, const Cloud& cloud) {
      const FrameOrigin& origin = session.Origin();
      for (const auto& [sample, received] : origin.imu) {
        files.WriteImu(sample, received);
      }
      files.Write(cloud, {.model = options.param.lidar_type,
                          .number = frame,
                          .part = part,
                          .first_packet = origin.first_packet,
                          .last_packet = origin.last_packet,
                          .uncalibrated = uncalibrated});
      files.WriteStatus(origin.statistics, origin.last_packet);
      const std::size_t valid = summary.Add(frame, cloud);
      if (options.json) {
        PrintResult(FrameJson(frame, part, cloud, valid, origin));
      } else {
        progress.Line(FrameTableRow(frame, part, cloud, valid));
      }
      progress.Step(summary.clouds());
    });
  }
  if (Interrupted()) {
    throw Failure("interrupted after " + std::to_string(summary.clouds()) + " of " +
                  std::to_string(frames.size()) + " frames; the files written so far are complete.");
  }
  summary.Tell(session);
  files.Commit();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
  if (options.json) {
    PrintResult(SummaryJson(options, summary, files, uncalibrated, seconds));
  }
  if (files.files() > 0) {
    Say(files.Summary() + (uncalibrated ? ", uncalibrated" : "") + Speed(summary, files, seconds));
  }
}

}  // namespace

void AddReplay(CLI::App& app) {
  CLI::App* command = app.add_subcommand("replay", "Turn a recording into point cloud files");
  const auto options = std::make_shared<ReplayOptions>();
  AddReplayOptions(*command, options->param, options->uncalibrated);
  command->get_option("--model")->required();
  AddFrameListOption(*command, options->frames);
  AddExportOptions(*command, options->files);
  command->add_flag("--json", options->json,
                    "A JSON object a line on standard output, for each frame and at the end");
  command->footer(kReplayExamples);
  command->callback([options] {
    UseCalibrationBeside(options->param);
    Replay(*options);
  });
}

}  // namespace orva
