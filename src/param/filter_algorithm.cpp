// SPDX-License-Identifier: Apache-2.0
#include "param/filter_algorithm.h"

#include <dirent.h>
#include <time.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <new>
#include <sstream>
#include <string_view>
#include <system_error>

#include "common/console.h"

namespace tevoro::lidar {

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

}  // namespace

/// Not by the iterator of the standard library, which ends the process where memory runs out in it.
void SearchFiles(const std::string& folder, std::vector<std::string>& paths) {
  const std::filesystem::path path(folder);
  const auto check = [&path](bool done) {
    if (done) return;
    const std::error_code error(errno, std::generic_category());
    if (error == std::errc::not_enough_memory) throw std::bad_alloc();
    throw std::filesystem::filesystem_error("cannot read the folder", path, error);
  };
  const std::unique_ptr<DIR, CloseFolder> open(opendir(folder.c_str()));
  check(open != nullptr);
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(open.get());
    check(entry != nullptr || errno == 0);
    if (entry == nullptr) return;
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    const std::filesystem::path file = path / name;
    if (std::filesystem::is_directory(file)) {
      SearchFiles(file.string(), paths);
    } else {
      std::ostringstream line;
      line << "文件: " << file;
      PrintLine(line.str());
      paths.push_back(file.string());
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
