// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "formats/frame_export.h"
#include "sessions/calibration_download.h"
#include "sessions/calibration_files.h"
#include "sessions/driver_options.h"
#include "sessions/frame_selection.h"
#include "sessions/recording.h"
#include "sessions/replay_session.h"
#include "shared/failure.h"
#include "shared/frame_table.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/terminal.h"

namespace orva {
namespace {

constexpr const char* kExamples =
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
};

void Replay(const ReplayOptions& options) {
  FrameExport files(options.files, options.param);
  CheckFrameList(options.frames);
  CatchInterrupts();

  const bool uncalibrated = CheckCalibration(options.param, options.uncalibrated);
  ReplaySession session(options.param);
  const std::vector<int> frames = IndexWithProgress(session, options.frames);
  files.Open(frames);

  RecordingSummary summary(options.param.lidar_type);
  {
    Progress progress("replaying", static_cast<int>(frames.size()));
    progress.Line(FrameTableHead());
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
      summary.Add(frame, cloud);
      progress.Line(FrameTableRow(frame, part, cloud));
      progress.Step(summary.clouds());
    });
  }
  if (Interrupted()) {
    throw Failure("interrupted after " + std::to_string(summary.clouds()) + " of " +
                  std::to_string(frames.size()) + " frames; the files written so far are complete.");
  }
  summary.Tell(session);
  files.Commit();
  if (files.files() > 0) {
    Say(files.Summary() + (uncalibrated ? ", uncalibrated" : ""));
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
  command->footer(kExamples);
  command->callback([options] {
    UseCalibrationBeside(options->param);
    Replay(*options);
  });
}

}  // namespace orva
