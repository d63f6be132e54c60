// SPDX-License-Identifier: Apache-2.0
#include "param/filter_algorithm.h"

#include <time.h>

#include <filesystem>
#include <sstream>

#include "common/console.h"

namespace tevoro::lidar {

void SearchFiles(const std::string& folder, std::vector<std::string>& paths) {
  for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_directory()) {
      SearchFiles(entry.path().string(), paths);
    } else {
      std::ostringstream line;
      line << "文件: " << entry.path();
      PrintLine(line.str());
      paths.push_back(entry.path().string());
    }
  }
}

std::vector<std::string> SplitString(const std::string& text, char delimiter) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, delimiter);) pieces.push_back(piece);
  return pieces;
}

float CalculateVariance(const std::vector<float>& values) {
  float sum = 0.0F;
  for (const float value : values) sum += value;
  const float mean = sum / static_cast<float>(values.size());
  float squares = 0.0F;
  for (const float value : values) squares += (value - mean) * (value - mean);
  return squares / static_cast<float>(values.size());
}

double GetSystemTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace tevoro::lidar
