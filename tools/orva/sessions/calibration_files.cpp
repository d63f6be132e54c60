// SPDX-License-Identifier: Apache-2.0
#include "sessions/calibration_files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "param/calibration_folder.h"
#include "param/filter_algorithm.h"
#include "shared/failure.h"
#include "shared/models.h"
#include "shared/terminal.h"
#include "shared/words.h"

namespace orva {
namespace {

namespace fs = std::filesystem;
using tevoro::lidar::CalibrationKind;
using tevoro::lidar::CalibrationRule;
using tevoro::lidar::kCalibrationRules;

constexpr std::size_t kKinds = std::size(kCalibrationRules);

/// What is known of the files of one kind.
struct Kind {
  std::size_t usable = 0;
  std::string problem;  ///< of the last file that is not usable
};

std::string Number(float value) {
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%g", static_cast<double>(value));
  return text.data();
}

/// Remarks on the values that the driver takes: their range, and what no sensor can mean.
std::string DescribeValues(const CalibrationRule& rule, const std::vector<float>& values) {
  const std::size_t used = std::min(values.size(), rule.used);
  float least = INFINITY;
  float greatest = -INFINITY;
  std::size_t unusable = 0;
  std::size_t zeros = 0;
  for (std::size_t i = 0; i < used; ++i) {
    if (!std::isfinite(values[i])) {
      ++unusable;
      continue;
    }
    zeros += values[i] == 0.0F;
    least = std::min(least, values[i]);
    greatest = std::max(greatest, values[i]);
  }
  std::string text;
  if (least <= greatest) {
    text += "  from " + Number(least) + " to " + Number(greatest) + "\n";
  }
  if (unusable > 0) {
    text += "  WRONG: " + Counted(unusable, "value is", "values are") + " NaN or infinite\n";
  }
  const bool angles = rule.kind == CalibrationKind::kAzimuth || rule.kind == CalibrationKind::kElevation;
  if (angles && used > 0 && zeros == used) {
    text += "  WRONG: every value is 0; a field without a number counts as 0\n";
  }
  if (angles && (least < -180.0F || greatest > 180.0F)) {
    text += "  doubtful: angles in degrees lie between -180 and 180\n";
  }
  if (values.size() > used) {
    text += "  " + Counted(values.size() - used, "further value is", "further values are") + " not used\n";
  }
  return text;
}

/// Why the driver gets nothing out of a path, or empty.
std::string WhyUnreadable(const std::string& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) {
    return error ? error.message() : "it is no regular file";
  }
  std::FILE* file = std::fopen(path.c_str(), "rbe");
  if (file == nullptr) {
    return std::generic_category().message(errno);
  }
  std::fclose(file);
  return "";
}

/// Says of one file what the driver makes of it.
std::string DescribeFile(LidarType model, const std::string& path, const CalibrationRule& rule, Kind& kind) {
  const std::string keyword(rule.keyword);
  std::string text = path + "\n  taken for: " + keyword;
  if (fs::path(path).filename().string().find(keyword) == std::string::npos) {
    text += ", for its folder's name";
  }
  text += "\n";
  if (const std::string why = WhyUnreadable(path); !why.empty()) {
    kind.problem = path + " cannot be read: " + why;
    return text + "  WRONG: cannot be read, " + why + "\n";
  }
  std::vector<float> values;
  tevoro::lidar::LoadFile(path, values, rule.start_column, 1);
  const std::string held = std::to_string(values.size()) + " values, needs " +
                           std::to_string(tevoro::lidar::RequiredValues(model, rule));
  text += "  holds " + held + "\n";
  if (values.size() < tevoro::lidar::RequiredValues(model, rule)) {
    kind.problem = path + " is too short: it holds " + held;
    text += "  WRONG: too short\n";
  } else if (++kind.usable > 1) {
    text += "  doubtful: not the only " + keyword + " file; the last one counts\n";
  }
  return text + DescribeValues(rule, values);
}

std::string KindLine(const CalibrationRule& rule, const Kind& kind) {
  std::string line(rule.keyword);
  line.resize(13, ' ');
  if (kind.usable == 1) {
    return line + (kind.problem.empty() ? "fine" : "fine; besides, " + kind.problem) + "\n";
  }
  if (kind.usable > 1) {
    return line + "WRONG: " + std::to_string(kind.usable) + " usable files; leave one in the folder\n";
  }
  return line + "WRONG: " +
         (kind.problem.empty() ? "no file has '" + std::string(rule.keyword) + "' in its path"
                               : kind.problem) +
         "\n";
}

}  // namespace

CalibrationFiles ExamineCalibration(LidarType model, const std::string& folder) {
  std::vector<std::string> paths;
  try {
    tevoro::lidar::SearchFiles(folder, paths);
  } catch (const fs::filesystem_error& error) {
    throw Failure("the calibration folder " + folder + " cannot be read: " + error.code().message() +
                  ". Give the folder that holds the sensor's azimuth, elevation, weight and near_filter "
                  "files.");
  }

  CalibrationFiles found;
  std::array<Kind, kKinds> kinds;
  for (const std::string& path : paths) {
    const CalibrationRule* rule = tevoro::lidar::FindCalibrationRule(path);
    if (rule == nullptr) {
      ++found.ignored;
      found.ignored_paths += "  " + path + "\n";
      continue;
    }
    found.details +=
        DescribeFile(model, path, *rule, kinds[static_cast<std::size_t>(rule - kCalibrationRules)]);
  }
  std::size_t usable = 0;
  bool one_each = true;
  for (std::size_t i = 0; i < kKinds; ++i) {
    usable += kinds[i].usable;
    one_each = one_each && kinds[i].usable == 1;
    found.kinds += KindLine(kCalibrationRules[i], kinds[i]);
  }
  found.accepted = usable == kKinds;
  found.verdict = std::string(found.accepted ? "Accepted" : "Not accepted") + " for " + OneOf(model) + ": " +
                  Counted(usable, "usable file", "usable files") + ", exactly " + std::to_string(kKinds) +
                  " are needed.";
  if (found.accepted && !one_each) {
    found.verdict += " The driver counts files, not kinds: what is missing keeps its default.";
  }
  return found;
}

bool CheckCalibration(const DriverParam& param, bool uncalibrated) {
  const LidarType model = param.lidar_type;
  const std::string& folder = param.calibration_param.calib_folder;
  if (!TraitsOf(model).uses_calibration || param.calib_from_lidar) {
    return false;
  }
  if (folder.empty()) {
    Warn("no calibration folder (--calib FOLDER): points come uncalibrated, all of them straight ahead.");
    return true;
  }
  std::string problem;
  try {
    const CalibrationFiles files = ExamineCalibration(model, folder);
    if (files.accepted) {
      Detail(files.verdict);
      return false;
    }
    problem = "the driver does not accept the calibration folder " + folder + " for " + OneOf(model) + ":\n" +
              files.kinds;
  } catch (const Failure& failure) {
    problem = failure.what();
  }
  if (!uncalibrated) {
    throw Failure(problem + "'orva check' tells more; --uncalibrated goes on without calibration.");
  }
  problem.erase(problem.find_last_not_of('\n') + 1);
  Warn("points come uncalibrated, all of them straight ahead: " + problem);
  return true;
}

std::string CalibrationFolderOf(const std::string& recording) {
  constexpr size_t kNumber = 5;  // _0000, as record_files numbers them
  fs::path folder(recording);
  folder.replace_extension();
  std::string name = folder;
  const size_t at = name.size() < kNumber ? 0 : name.size() - kNumber;
  const bool numbered = at > 0 && name[at] == '_' &&
                        std::all_of(name.begin() + static_cast<std::ptrdiff_t>(at) + 1, name.end(),
                                    [](char c) { return c >= '0' && c <= '9'; });
  std::error_code ignored;
  // A single recording may be called so by chance.
  if (numbered && !fs::is_directory(name + ".calib", ignored)) name.resize(at);
  return name + ".calib";
}

void UseCalibrationBeside(DriverParam& param) {
  std::string& folder = param.calibration_param.calib_folder;
  if (!folder.empty() || !TraitsOf(param.lidar_type).uses_calibration) return;
  const std::string beside = CalibrationFolderOf(param.input_param.pcap_path);
  std::error_code ignored;
  if (!fs::is_directory(beside, ignored)) return;
  folder = beside;
  Say("calibration: " + beside + ", beside the recording");
}

std::string CalibrationText(LidarType model, const DriverStatistics& statistics) {
  if (!TraitsOf(model).uses_calibration) {
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

}  // namespace orva
