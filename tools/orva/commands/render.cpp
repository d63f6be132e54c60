// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "formats/frame_export.h"
#include "formats/output_file.h"
#include "formats/pcd_reader.h"
#include "picture/pictures.h"
#include "sessions/calibration_files.h"
#include "sessions/driver_options.h"
#include "sessions/frame_selection.h"
#include "sessions/recording.h"
#include "sessions/replay_session.h"
#include "shared/failure.h"
#include "shared/frame_table.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/numbers.h"
#include "shared/terminal.h"

namespace orva {
namespace {

namespace fs = std::filesystem;

constexpr const char* kRenderExamples =
    "Examples:\n"
    "  orva render street.pcap --model TS4B --calib calib/ --out pictures/\n"
    "      draws pictures/frame_0000_birdseye.png and pictures/frame_0000_range.png\n"
    "  orva render street.pcap --model NV2 --frames 0-9 --view birdseye \\\n"
    "      --color distance --range 50\n"
    "  orva render clouds/frame_0007.pcd\n";

struct RenderOptions {
  DriverParam param = OpenParam(PCAP);
  bool uncalibrated = false;  ///< wanted
  std::string frames = "0";
  std::string out = ".";
  std::string view = "both";
  std::optional<ColourBy> colour;
  float range = 0.0F;
  Existing existing = Existing::kKeep;
};

/// Draws what the options ask for, and tells the names.
void Draw(const RenderOptions& options, const Cloud& cloud, const std::string& name,
          const std::string& title) {
  const std::string source = fs::path(options.param.input_param.pcap_path).filename().string();
  const std::size_t valid = CountValid(cloud);
  std::string subtitle =
      source + " \u00B7 " + std::to_string(valid) + " of " + std::to_string(cloud.points.size()) + " points";
  if (cloud.timestamp > 0.0) {
    subtitle += " \u00B7 " + TimeText(cloud.timestamp) + " UTC";
  }
  if (valid == 0) {
    Warn(name + " has no point with a distance: its pictures are bare.");
  }
  if (options.view != "range") {
    const ColourScale scale(options.colour.value_or(ColourBy::kIntensity), cloud);
    const fs::path path = fs::path(options.out) / (name + "_birdseye.png");
    RefuseExisting(path, options.existing);
    WritePng(DrawBirdsEye(cloud, scale, {title + ", bird's-eye view", subtitle}, options.range), path);
    Say(path.string());
  }
  if (options.view != "birdseye") {
    const ColourScale scale(options.colour.value_or(ColourBy::kDistance), cloud);
    const fs::path path = fs::path(options.out) / (name + "_range.png");
    RefuseExisting(path, options.existing);
    WritePng(DrawRangeImage(cloud, scale, {title + ", seen from the sensor", subtitle}), path);
    Say(path.string());
  }
}

void RenderRecording(const RenderOptions& options) {
  const ModelTraits& model = TraitsOf(options.param.lidar_type);
  if (!model.has_points) {
    throw Failure("the driver decodes no points of " + OneOf(options.param.lidar_type) +
                  ": there is nothing to draw.");
  }
  CheckFrameList(options.frames);
  CatchInterrupts();
  const bool uncalibrated = CheckCalibration(options.param, options.uncalibrated);
  ReplaySession session(options.param);
  const std::vector<int> frames = IndexWithProgress(session, options.frames);
  MakeFolder(options.out);
  RecordingSummary summary(options.param.lidar_type);
  session.Play(frames, [&](int frame, int part, const Cloud& cloud) {
    summary.Add(frame, cloud);
    if (part == 0 && !cloud.points.empty()) {
      Draw(options, cloud, FrameName(frame),
           std::string(model.name) + (uncalibrated ? ", uncalibrated" : "") + ", frame " +
               std::to_string(frame));
    }
  });
  if (Interrupted()) {
    throw Failure("interrupted; the pictures drawn so far are complete.");
  }
  summary.Tell(session);
}

void Render(const RenderOptions& options) {
  const fs::path source = options.param.input_param.pcap_path;
  if (source.extension() == ".pcd") {
    const PcdFile file = ReadPcd(source);
    MakeFolder(options.out);
    const std::string name = source.stem().string();
    Draw(options, file.cloud, name, name + (file.uncalibrated ? ", uncalibrated" : ""));
  } else if (options.param.lidar_type == 0) {
    throw WrongUsage("which sensor made this recording? Say it with --model, as in --model TS4B");
  } else {
    RenderRecording(options);
  }
}

}  // namespace

void AddRender(CLI::App& app) {
  CLI::App* command = app.add_subcommand("render", "Draw frames of a recording, or a PCD file, as PNG");
  const auto options = std::make_shared<RenderOptions>();
  AddReplayOptions(*command, options->param, options->uncalibrated);
  command->get_option("FILE")->description("A pcap or pcapng file, or a PCD file by orva");
  AddFrameListOption(*command, options->frames);
  command->add_option("--out", options->out, "Folder for the pictures")
      ->capture_default_str()
      ->type_name("DIR");
  command->add_option("--view", options->view, "birdseye, range or both")
      ->check(CLI::IsMember({"birdseye", "range", "both"}))
      ->capture_default_str()
      ->type_name("NAME");
  command
      ->add_option_function<std::string>(
          "--color",
          [options](const std::string& name) {
            options->colour = name == "distance" ? ColourBy::kDistance : ColourBy::kIntensity;
          },
          "intensity or distance; default: one view of each")
      ->check(CLI::IsMember({"distance", "intensity"}))
      ->type_name("NAME");
  AddNumber(*command, "--range", options->range, 0.0F, 10000.0F, "Bird's-eye view, metres; 0 fits the frame")
      ->default_str("0")
      ->type_name("M");
  AddForceOption(*command, options->existing);
  command->footer(kRenderExamples);
  command->callback([options] {
    UseCalibrationBeside(options->param);
    Render(*options);
  });
}

}  // namespace orva
