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

/// The line buffer of getline, which grows with the longest line.
struct LineBuffer {
  LineBuffer() = default;
  LineBuffer(const LineBuffer&) = delete;
  LineBuffer& operator=(const LineBuffer&) = delete;
  ~LineBuffer() { std::free(text); }

  char* text = nullptr;
  size_t capacity = 0;
};

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
  LoadFile(path, values, rule.start_column, 1);
  if (ReportsSize(type, rule)) {
    PrintLine("list.size():" + std::to_string(values.size()) + " size:" + std::to_string(required));
  }
  if (values.size() < required) return false;
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

void LoadFile(const std::string& path, std::vector<float>& values, size_t start_column, size_t column_step) {
  const auto file = OpenRegularFile(path);
  if (!file) return;
  LineBuffer buffer;
  for (ssize_t length; (length = getline(&buffer.text, &buffer.capacity, file.get())) > 0;) {
    std::string line(buffer.text, static_cast<size_t>(length));
    if (line.back() == '\n') line.pop_back();
    const std::vector<std::string> fields = SplitString(line, ',');
    for (size_t i = start_column; i < fields.size(); i += column_step)
      values.push_back(ParseFloat(fields[i]));
  }
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
