// SPDX-License-Identifier: Apache-2.0
#include "sessions/calibration_check.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "shared/failure.h"
#include "shared/models.h"
#include "shared/terminal.h"

namespace orva {
namespace {

namespace fs = std::filesystem;

struct Table {
  const char* keyword;  ///< anywhere in the path, tried in this order
  std::size_t skipped_columns;
  std::size_t values;  ///< at least
};
constexpr std::array<Table, 4> kTables = {
    {{"azimuth", 0, 49152}, {"elevation", 0, 49152}, {"weight", 1, 4}, {"near_filter", 0, 8}}};

std::size_t CountValues(const fs::path& path, std::size_t skipped_columns) {
  std::ifstream file(path);
  std::size_t values = 0;
  for (std::string line; std::getline(file, line);) {
    if (line.empty()) {
      continue;
    }
    const auto commas = static_cast<std::size_t>(std::count(line.begin(), line.end(), ','));
    const std::size_t columns = line.back() == ',' ? commas : commas + 1;
    values += columns > skipped_columns ? columns - skipped_columns : 0;
  }
  return values;
}

/// What is wrong with the folder, or empty.
std::string Examine(const std::string& folder) {
  std::array<int, kTables.size()> files = {};
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string path = entry.path().string();
    const auto table = std::find_if(kTables.begin(), kTables.end(), [&path](const Table& candidate) {
      return path.find(candidate.keyword) != std::string::npos;
    });
    if (table == kTables.end() || !entry.is_regular_file()) {
      continue;
    }
    ++files[static_cast<std::size_t>(table - kTables.begin())];
    const std::size_t values = CountValues(entry.path(), table->skipped_columns);
    if (values < table->values) {
      return path + " counts as the " + table->keyword + " file, and holds " + std::to_string(values) +
             " values instead of " + std::to_string(table->values);
    }
  }
  for (std::size_t i = 0; i < kTables.size(); ++i) {
    if (files[i] != 1) {
      return std::to_string(files[i]) + " files with '" + kTables[i].keyword +
             "' in their path, instead of one, are in " + folder;
    }
  }
  return "";
}

}  // namespace

void CheckCalibration(LidarType model, const std::string& folder) {
  if (!TraitsOf(model).uses_calibration) {
    return;
  }
  if (folder.empty()) {
    Warn("no calibration folder (--calib FOLDER): points come uncalibrated, all of them straight ahead.");
    return;
  }
  std::error_code error;
  if (!fs::is_directory(folder, error)) {
    throw Failure(
        "there is no calibration folder " + folder +
        ". Give the folder that holds the sensor's azimuth, elevation, weight and near_filter files.");
  }
  std::string problem;
  try {
    problem = Examine(folder);
  } catch (const fs::filesystem_error& failure) {
    problem = "the calibration folder cannot be read: " + failure.code().message();
  }
  if (!problem.empty()) {
    Warn("points come uncalibrated: " + problem + ".");
  }
}

}  // namespace orva
