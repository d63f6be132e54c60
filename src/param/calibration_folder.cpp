// SPDX-License-Identifier: Apache-2.0
#include "param/calibration_folder.h"

#include <fcntl.h>
#include <locale.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "common/console.h"
#include "param/filter_algorithm.h"

namespace tevoro::lidar {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

/// Opens without waiting: a pipe in the folder must not block the driver.
std::unique_ptr<std::FILE, CloseFile> OpenRegularFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat status {};
  std::FILE* file = nullptr;
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) file = fdopen(fd, "r");
  if (file == nullptr) close(fd);
  return std::unique_ptr<std::FILE, CloseFile>(file);
}

/// Calls `visit(column, field)` for each field, as it comes from the file: a line may be of any length, and
/// so may a field, of which only so much is kept as no number needs. An empty field counts, but not behind
/// the last comma of a line.
template <typename Visit>
void ForEachField(std::FILE* file, const Visit& visit) {
  constexpr size_t kLongestNumber = 4096;
  std::string field;
  size_t column = 0;
  bool empty = true;
  for (int c = 0; c != EOF;) {
    c = getc_unlocked(file);
    const bool line_end = c == '\n' || c == EOF;
    if (c == ',' || (line_end && !empty)) visit(column++, field);
    if (c == ',' || line_end) {
      field.clear();
      empty = true;
      if (line_end) column = 0;
      continue;
    }
    empty = false;
    const bool leading_space = field.empty() && (c == ' ' || (c >= '\t' && c <= '\r'));
    if (!leading_space && field.size() < kLongestNumber) field.push_back(static_cast<char>(c));
  }
}

/// A decimal number as the "C" locale writes it, whatever locale the application has set.
float ParseFloat(const std::string& field) {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return static_cast<float>(strtod_l(field.c_str(), nullptr, c_locale));
}

/// Bytes of the record's field; the record is packed, so its floats may stand anywhere.
void* FieldOf(CheckParam& param, CalibrationKind kind) {
  switch (kind) {
    case CalibrationKind::kAzimuth:
      return &param.azimuth;
    case CalibrationKind::kElevation:
      return &param.elevation;
    case CalibrationKind::kWeight:
      return &param.weight;
    case CalibrationKind::kNearFilter:
      break;
  }
  return &param.near_filter;
}

bool IsTable(const CalibrationRule& rule) {
  return rule.used == CALIB_TABLE_ENTRIES;
}

bool Announces(LidarType type, const CalibrationRule& rule) {
  return type != TS4 && IsTable(rule);
}

bool ReportsSize(LidarType type, const CalibrationRule& rule) {
  return Announces(type, rule) && (type != TS4A || rule.kind == CalibrationKind::kElevation);
}

bool LoadField(LidarType type, const CalibrationRule& rule, const std::string& path, CheckParam& param) {
  const size_t required = RequiredValues(type, rule);
  if (Announces(type, rule)) PrintLine(rule.keyword);
  std::vector<float> values;
  const size_t found = LoadFile(path, values, rule.start_column, 1, rule.used);
  if (ReportsSize(type, rule)) {
    PrintLine("list.size():" + std::to_string(found) + " size:" + std::to_string(required));
  }
  if (found < required) return false;
  std::memcpy(FieldOf(param, rule.kind), values.data(), rule.used * sizeof(float));
  return true;
}

}  // namespace

bool HasCalibrationFiles(LidarType type) {
  return type == TS4 || type == TS4A || type == TS4B || type == TS6;
}

size_t RequiredValues(LidarType type, const CalibrationRule& rule) {
  return type == TS4 || type == TS4A ? rule.used * sizeof(float) : rule.used;
}

const CalibrationRule* FindCalibrationRule(std::string_view path) {
  for (const CalibrationRule& rule : kCalibrationRules) {
    if (path.find(rule.keyword) != std::string_view::npos) return &rule;
  }
  return nullptr;
}

size_t LoadFile(const std::string& path, std::vector<float>& values, size_t start_column, size_t column_step,
                size_t most) {
  const auto file = OpenRegularFile(path);
  if (!file) return 0;
  size_t found = 0;
  ForEachField(file.get(), [&](size_t column, const std::string& field) {
    if (column < start_column || (column - start_column) % column_step != 0) return;
    if (found++ < most) values.push_back(ParseFloat(field));
  });
  return found;
}

bool LoadCalibrationFolder(LidarType type, const std::string& folder, CheckParam& param) {
  if (!HasCalibrationFiles(type)) return false;
  std::vector<std::string> paths;
  SearchFiles(folder, paths);
  size_t loaded = 0;
  for (const std::string& path : paths) {
    const CalibrationRule* rule = FindCalibrationRule(path);
    if (rule != nullptr && LoadField(type, *rule, path, param)) ++loaded;
  }
  return loaded == std::size(kCalibrationRules);
}

}  // namespace tevoro::lidar
