// SPDX-License-Identifier: Apache-2.0
//
// What the tool wrote.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace orva::test {

struct FilePoint {
  float x, y, z, intensity;
  uint32_t label;
  double timestamp;

  bool operator==(const FilePoint&) const = default;
};

inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Cuts the packed records that follow a text header.
inline std::vector<FilePoint> ParseBinary(const std::filesystem::path& path, const std::string& header_end) {
  const std::string bytes = ReadFile(path);
  EXPECT_NE(bytes.find(header_end), std::string::npos);
  size_t at = std::min(bytes.size(), bytes.find(header_end) + header_end.size());
  EXPECT_EQ((bytes.size() - at) % 28, 0U);
  std::vector<FilePoint> points((bytes.size() - at) / 28);
  for (FilePoint& point : points) {
    std::memcpy(&point.x, &bytes[at], 16);
    std::memcpy(&point.label, &bytes[at + 16], 4);
    std::memcpy(&point.timestamp, &bytes[at + 20], 8);
    at += 28;
  }
  return points;
}

inline std::vector<FilePoint> ParseCsv(const std::filesystem::path& path) {
  std::istringstream file(ReadFile(path));
  std::string line;
  std::getline(file, line);
  EXPECT_EQ(line, "x,y,z,intensity,label,timestamp");
  std::vector<FilePoint> points;
  while (std::getline(file, line)) {
    FilePoint& p = points.emplace_back();
    EXPECT_EQ(std::sscanf(line.c_str(), "%f,%f,%f,%f,%u,%lf", &p.x, &p.y, &p.z, &p.intensity, &p.label,
                          &p.timestamp),
              6);
  }
  return points;
}

inline std::set<std::string> Names(const std::filesystem::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.insert(entry.path().filename());
  }
  return names;
}

}  // namespace orva::test
