// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "commands/commands.h"
#include "param/calibration_folder.h"
#include "sessions/calibration_files.h"
#include "shared/failure.h"
#include "shared/json.h"
#include "shared/models.h"
#include "shared/standard_output.h"
#include "shared/terminal.h"
#include "shared/words.h"

namespace orva {
namespace {

constexpr const char* kCheckExamples =
    "The report goes to standard output; --verbose lists ignored files too.\n"
    "Exit codes: 0 the driver accepts the folder, 1 it does not, or its points will be\n"
    "wrong all the same, 2 wrong usage.\n"
    "Example:\n"
    "  orva check calib/ --model TS4B\n";

struct CheckOptions {
  std::string folder;
  LidarType model = TS4B;
  bool json = false;
};

std::string Json(const CheckOptions& options, const CalibrationFiles& files) {
  JsonObject object;
  object.Add("folder", options.folder)
      .Add("model", TraitsOf(options.model).name)
      .Add("accepted", files.accepted)
      .Add("sound", files.sound)
      .Add("verdict", files.verdict)
      .Add("kinds", files.kinds)
      .Add("details", files.details)
      .Add("ignored", files.ignored);
  return object.Text() + "\n";
}

void Check(const CheckOptions& options) {
  if (!tevoro::lidar::HasCalibrationFiles(options.model)) {
    throw Failure(OneOf(options.model) +
                  " has no calibration files: the driver accepts no folder for it, and reads none.");
  }
  const CalibrationFiles files = ExamineCalibration(options.model, options.folder);
  std::string report = files.verdict + "\n\n" + files.kinds;
  if (!files.details.empty()) {
    report += "\n" + files.details;
  }
  if (files.ignored > 0) {
    report +=
        "\n" + Counted(files.ignored, "file is", "files are") + " ignored, without a keyword in the path";
    report +=
        TheVerbosity() == Verbosity::kVerbose ? ":\n" + files.ignored_paths : "; --verbose lists them.\n";
  }
  PrintResult(options.json ? Json(options, files) : report);
  if (!files.accepted) {
    throw Failure("the driver does not accept " + options.folder + " for " + OneOf(options.model) + ".");
  }
  if (!files.sound) {
    throw Failure("the driver accepts " + options.folder + " for " + OneOf(options.model) +
                  ", and its points will be wrong.");
  }
}

}  // namespace

void AddCheck(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("check", "Tell whether a calibration folder fits a model, and why not");
  const auto options = std::make_shared<CheckOptions>();
  command->add_option("FOLDER", options->folder, "The folder of calibration files")->required();
  AddModelOption(*command, options->model)->required();
  command->add_flag("--json", options->json, "The report as one JSON object");
  command->footer(kCheckExamples);
  command->callback([options] { Check(*options); });
}

}  // namespace orva
