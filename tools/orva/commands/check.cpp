// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "commands/commands.h"
#include "param/calibration_folder.h"
#include "param/filter_algorithm.h"
#include "shared/failure.h"
#include "shared/models.h"
#include "shared/standard_output.h"

namespace orva {
namespace {

namespace fs = std::filesystem;
using tevoro::lidar::CalibrationKind;
using tevoro::lidar::CalibrationRule;

constexpr const char* kExamples =
    "The report goes to standard output, after the driver's list of the files.\n"
    "Exit codes: 0 the driver accepts the folder, 1 it does not, 2 wrong usage.\n"
    "Example:\n"
    "  orva check calib/ --model TS4B\n";

struct CheckOptions {
  std::string folder;
  LidarType model = TS4B;
};

std::string Number(float value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%g", static_cast<double>(value));
  return text;
}

/// Remarks on the values that the driver takes: their range, and what no sensor can mean.
std::string DescribeValues(const CalibrationRule& rule, const std::vector<float>& values) {
  const size_t used = std::min(values.size(), rule.used);
  float least = INFINITY;
  float greatest = -INFINITY;
  size_t unusable = 0;
  size_t zeros = 0;
  for (size_t i = 0; i < used; ++i) {
    if (!std::isfinite(values[i])) {
      ++unusable;
      continue;
    }
    zeros += values[i] == 0.0F;
    least = std::min(least, values[i]);
    greatest = std::max(greatest, values[i]);
  }
  std::string text;
  if (least <= greatest) text += "  from " + Number(least) + " to " + Number(greatest) + "\n";
  if (unusable > 0) text += "  WRONG: " + std::to_string(unusable) + " values are NaN or infinite\n";
  const bool angles = rule.kind == CalibrationKind::kAzimuth || rule.kind == CalibrationKind::kElevation;
  if (angles && used > 0 && zeros == used) {
    text += "  WRONG: every value is 0; a field without a number counts as 0\n";
  }
  if (angles && (least < -180.0F || greatest > 180.0F)) {
    text += "  doubtful: angles in degrees lie between -180 and 180\n";
  }
  if (values.size() > used) {
    text += "  " + std::to_string(values.size() - used) + " further values are not used\n";
  }
  return text;
}

/// Why the driver gets nothing out of a path, or empty.
std::string WhyUnreadable(const std::string& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return "it is no regular file";
  std::FILE* file = std::fopen(path.c_str(), "rbe");
  if (file == nullptr) return std::generic_category().message(errno);
  std::fclose(file);
  return "";
}

/// Says of one file what the driver makes of it. `loaded` counts the files that fill a field.
std::string DescribeFile(LidarType model, const std::string& path, std::map<std::string, size_t>& loaded) {
  const CalibrationRule* rule = tevoro::lidar::FindCalibrationRule(path);
  if (rule == nullptr) return path + "\n  ignored: no keyword in its path\n";
  const std::string keyword(rule->keyword);
  std::string text = path + "\n  taken for: " + keyword;
  if (fs::path(path).filename().string().find(keyword) == std::string::npos)
    text += ", for its folder's name";
  text += "\n";
  if (const std::string why = WhyUnreadable(path); !why.empty()) {
    return text + "  WRONG: cannot be read, " + why + "\n";
  }
  std::vector<float> values;
  tevoro::lidar::LoadFile(path, values, rule->start_column, 1);
  const size_t required = tevoro::lidar::RequiredValues(model, *rule);
  text += "  holds " + std::to_string(values.size()) + " values, needs " + std::to_string(required) + "\n";
  if (values.size() < required) return text + "  WRONG: too short\n" + DescribeValues(*rule, values);
  if (++loaded[keyword] > 1) text += "  doubtful: not the only " + keyword + " file; the last one counts\n";
  return text + DescribeValues(*rule, values);
}

void Check(const CheckOptions& options) {
  const std::string model = TraitsOf(options.model).name;
  if (!tevoro::lidar::HasCalibrationFiles(options.model)) {
    throw Failure("a " + model +
                  " has no calibration files: the driver accepts no folder for it, and reads "
                  "none.");
  }
  std::vector<std::string> paths;
  try {
    tevoro::lidar::SearchFiles(options.folder, paths);
  } catch (const fs::filesystem_error& error) {
    throw Failure("the folder " + options.folder + " cannot be read: " + error.code().message() + ".");
  }

  std::map<std::string, size_t> loaded;
  std::string report = "\n";
  for (const std::string& path : paths) report += DescribeFile(options.model, path, loaded);
  size_t files = 0;
  std::string missing;
  for (const CalibrationRule& rule : tevoro::lidar::kCalibrationRules) {
    const size_t count = loaded[std::string(rule.keyword)];
    files += count;
    if (count == 0) missing += " " + std::string(rule.keyword);
  }
  if (!missing.empty()) report += "\nNo usable file for:" + missing + "\n";
  const size_t wanted = std::size(tevoro::lidar::kCalibrationRules);
  const bool accepted = files == wanted;
  report += "\n" + std::string(accepted ? "Accepted" : "Not accepted") + " for a " + model + ": " +
            std::to_string(files) + " usable files, exactly " + std::to_string(wanted) + " are needed.\n";
  if (accepted && !missing.empty()) {
    report += "The driver counts files, not kinds: what is missing keeps its default.\n";
  }
  PrintResult(report);
  if (!accepted) throw Failure("the driver does not accept " + options.folder + " for a " + model + ".");
}

}  // namespace

void AddCheck(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("check", "Tell whether a calibration folder fits a model, and why not");
  const auto options = std::make_shared<CheckOptions>();
  command->add_option("FOLDER", options->folder, "The folder of calibration files")->required();
  AddModelOption(*command, options->model)->required();
  command->footer(kExamples);
  command->callback([options] { Check(*options); });
}

}  // namespace orva
