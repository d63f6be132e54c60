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

#include "messages/from_driver.h"
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
  std::string problem;  ///< of the last file that the driver does not use for it
  std::string wrong;    ///< of a file that it does use, and that points go wrong with
  std::string doubt;    ///< likewise, where some may
};

std::string Number(float value) {
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%g", static_cast<double>(value));
  return text.data();
}

/// The numbers of a file that the driver takes.
struct Values {
  float least = INFINITY;  ///< of the finite ones
  float greatest = -INFINITY;
  std::size_t no_numbers = 0;  ///< NaN or infinite
  std::size_t no_angles = 0;   ///< of a table, where the sensor measures: neither these nor from -180 to 180
  bool bare = true;            ///< of a table: no other direction than straight ahead
};

Values Judge(const std::vector<float>& values) {
  Values judged;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const float value = values[i];
    if (std::isfinite(value)) {
      judged.least = std::min(judged.least, value);
      judged.greatest = std::max(judged.greatest, value);
    } else {
      ++judged.no_numbers;
    }
    // A table has 256 entries for a line, and the grid 128 columns.
    if (i % 256 < 128) {
      const bool is_angle = std::abs(value) <= 180.0F;
      judged.no_angles += !is_angle;
      judged.bare = judged.bare && (!is_angle || value == 0.0F);
    }
  }
  return judged;
}

/// Remarks on the values that the driver takes: their range, and what no sensor can mean.
std::string DescribeValues(const CalibrationRule& rule, const std::string& path,
                           const std::vector<float>& values, Kind& kind) {
  const Values judged = Judge(values);
  std::string text;
  if (judged.least <= judged.greatest) {
    text += "  from " + Number(judged.least) + " to " + Number(judged.greatest) + "\n";
  }
  const std::string no_numbers = Counted(judged.no_numbers, "value is", "values are") + " NaN or infinite";
  const bool angles = rule.kind == CalibrationKind::kAzimuth || rule.kind == CalibrationKind::kElevation;
  if (!angles && judged.no_numbers > 0) {
    kind.wrong = path + ": " + no_numbers;
    return text + "  WRONG: " + no_numbers + "\n";
  }
  if (angles && judged.bare && !values.empty()) {
    const std::string bare = "every value is 0 or no angle; a field without a number counts as 0";
    kind.wrong = path + ": " + bare;
    return text + "  WRONG: " + bare + "\n";
  }
  if (judged.no_numbers > 0) {
    text += "  doubtful: " + no_numbers + "\n";
  }
  if (angles && judged.no_angles > 0) {
    const std::string lost =
        Counted(judged.no_angles, "direction", "directions") + " without an angle from -180 to 180 degrees";
    kind.doubt = path + ": " + lost;
    text += "  doubtful: " + lost + "\n";
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
  // Of a file of any length only what the driver takes is kept; the rest is counted.
  const std::size_t found = tevoro::lidar::LoadFile(path, values, rule.start_column, 1, rule.used);
  const std::size_t required = tevoro::lidar::RequiredValues(model, rule);
  const std::string held = std::to_string(found) + " values, needs " + std::to_string(required);
  text += "  holds " + held + "\n";
  const bool used = found >= required;
  if (!used) {
    kind.problem = path + " is too short: it holds " + held;
    text += "  WRONG: too short\n";
  } else if (++kind.usable > 1) {
    text += "  doubtful: not the only " + keyword + " file; the last one counts\n";
  }
  Kind unused;
  text += DescribeValues(rule, path, values, used ? kind : unused);
  if (found > values.size()) {
    text += "  " + Counted(found - values.size(), "further value is", "further values are") + " not used\n";
  }
  return text;
}

std::string KindLine(const CalibrationRule& rule, const Kind& kind) {
  std::string line(rule.keyword);
  line.resize(13, ' ');
  if (kind.usable == 0) {
    return line + "WRONG: " +
           (kind.problem.empty() ? "no file has '" + std::string(rule.keyword) + "' in its path"
                                 : kind.problem) +
           "\n";
  }
  if (!kind.wrong.empty()) {
    return line + "WRONG: " + kind.wrong + "\n";
  }
  if (kind.usable > 1) {
    return line + "WRONG: " + std::to_string(kind.usable) + " usable files; leave one in the folder\n";
  }
  line += "fine";
  for (const std::string& besides : {kind.doubt, kind.problem}) {
    line += besides.empty() ? "" : "; besides, " + besides;
  }
  return line + "\n";
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
    Kind& kind = kinds[static_cast<std::size_t>(rule - kCalibrationRules)];
    const std::size_t before = kind.usable;
    found.details += DescribeFile(model, path, *rule, kind);
    const CalibrationRule* named = tevoro::lidar::FindCalibrationRule(fs::path(path).filename().string());
    if (named != nullptr && named != rule) {
      const std::string strayed = path + " counts as " + std::string(rule->keyword) +
                                  ", for its folder's name; call the folder something else";
      kinds[static_cast<std::size_t>(named - kCalibrationRules)].problem = strayed;
      if (kind.usable > before) {
        kind.wrong = strayed;
      }
    }
  }
  std::size_t usable = 0;
  bool one_each = true;
  bool right = true;
  for (std::size_t i = 0; i < kKinds; ++i) {
    usable += kinds[i].usable;
    one_each = one_each && kinds[i].usable == 1;
    right = right && kinds[i].wrong.empty();
    if (!kinds[i].doubt.empty()) {
      found.doubts += (found.doubts.empty() ? "" : "; ") + kinds[i].doubt;
    }
    found.kinds += KindLine(kCalibrationRules[i], kinds[i]);
  }
  found.accepted = usable == kKinds;
  found.sound = found.accepted && one_each && right;
  found.verdict = std::string(found.sound      ? "Accepted"
                              : found.accepted ? "WRONG, although the driver accepts it,"
                                               : "Not accepted") +
                  " for " + OneOf(model) + ": " + Counted(usable, "usable file", "usable files") +
                  ", exactly " + std::to_string(kKinds) + " are needed.";
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
  std::string effect = "points come uncalibrated, all of them straight ahead: ";
  try {
    const CalibrationFiles files = ExamineCalibration(model, folder);
    if (files.sound) {
      Detail(files.verdict);
      if (!files.doubts.empty()) {
        Warn("some points will be missing or wrong: " + files.doubts + ".");
      }
      return false;
    }
    if (files.accepted) {
      problem = "the driver accepts the calibration folder " + folder + " for " + OneOf(model) +
                ", and its points will be wrong:\n";
      effect = "";
    } else {
      problem =
          "the driver does not accept the calibration folder " + folder + " for " + OneOf(model) + ":\n";
    }
    problem += files.kinds;
  } catch (const Failure& failure) {
    problem = failure.what();
  }
  if (!uncalibrated) {
    throw Failure(problem + "'orva check' tells more; --uncalibrated goes on " +
                  (effect.empty() ? "all the same." : "without calibration."));
  }
  problem.erase(problem.find_last_not_of('\n') + 1);
  Warn(effect + problem);
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
  if (statistics.calibration != CALIBRATION_DOWNLOADING) {
    return messages::CalibrationName(statistics.calibration);
  }
  return statistics.calibration_bytes == 0
             ? "waiting for the sensor"
             : "downloading, " + std::to_string(statistics.calibration_bytes) + " bytes so far";
}

}  // namespace orva
