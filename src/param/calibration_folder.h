// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "orva_driver.h"
#include "param/check_param.h"

namespace tevoro::lidar {

/// The four kinds of calibration file. A file is of the first kind whose keyword occurs anywhere in its path.
enum class CalibrationKind { kAzimuth, kElevation, kWeight, kNearFilter };

struct CalibrationRule {
  CalibrationKind kind;
  std::string_view keyword;
  size_t used;          ///< values that are taken, the first ones of the file
  size_t start_column;  ///< columns before it are labels
};

/// In the order in which keywords are tried.
inline constexpr CalibrationRule kCalibrationRules[] = {
    {CalibrationKind::kAzimuth, "azimuth", CALIB_TABLE_ENTRIES, 0},
    {CalibrationKind::kElevation, "elevation", CALIB_TABLE_ENTRIES, 0},
    {CalibrationKind::kWeight, "weight", 4, 1},
    {CalibrationKind::kNearFilter, "near_filter", 8, 0},
};

/// Has the model calibration files at all?
bool HasCalibrationFiles(LidarType type);

/// Values that a file must hold at least. TS4 and TS4A count the bytes of the field, so they want four times
/// the values that they use.
size_t RequiredValues(LidarType type, const CalibrationRule& rule);

/// The rule for a path, or null where no keyword occurs in it.
const CalibrationRule* FindCalibrationRule(std::string_view path);

/// Appends the numbers of a text file of comma-separated lines: in each line the fields start, start + step,
/// ... (step at least 1). A field without a number is 0. Appends nothing where `path` is no regular file or
/// cannot be read. At most `most` are appended; returns how many there are.
size_t LoadFile(const std::string& path, std::vector<float>& values, size_t start_column, size_t column_step,
                size_t most = std::numeric_limits<size_t>::max());

/// Fills `param` from the files below `folder`, see ParamService::LoadCheckFolder.
bool LoadCalibrationFolder(LidarType type, const std::string& folder, CheckParam& param);

}  // namespace tevoro::lidar
