// SPDX-License-Identifier: Apache-2.0
#include "shared/driver_log.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "common/console.h"
#include "orva_driver.h"
#include "shared/failure.h"
#include "shared/terminal.h"

namespace orva {
namespace {

/// Lines that differ are kept up to here, so that a peer's odd lengths fill no memory.
constexpr std::size_t kMostLines = 64;
constexpr std::size_t kShownComplaints = 5;
/// The file holds so many repetitions of a line, and of those that found no room above, then one each time
/// that their number has doubled: a flood on the sensor's port fills no disk.
constexpr std::uint64_t kMostRepetitions = 1024;

/// How lines begin that tell of trouble. All others say what the driver is doing.
constexpr const char* kTrouble[] = {"ProcessMsopPacket", "Wrong", "Error", "LoadCheckFolder failed",
                                    "data is erorr"};

struct Log {
  struct Line {
    std::uint64_t count = 0;
    bool is_error = false;
  };

  std::mutex mutex;
  std::map<std::string, Line> lines;
  std::uint64_t further = 0;  ///< lines that found no room
  std::FILE* file = nullptr;

  void Add(std::string_view text, bool is_error);
  void Write(const std::string& line, std::uint64_t count);
};

/// Driver threads may print until the process ends, so it is never destroyed.
Log& TheLog() {
  static Log& log = *new Log;
  return log;
}

/// Without the escape sequences that give a line its colour.
std::string Plain(std::string_view line) {
  std::string plain;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\033') {
      i = std::min(line.find('m', i), line.size());
    } else {
      plain += line[i];
    }
  }
  return plain;
}

void Log::Write(const std::string& line, std::uint64_t count) {
  if (file == nullptr || (count > kMostRepetitions && !std::has_single_bit(count))) return;
  const std::string times = count < kMostRepetitions ? "" : " (" + std::to_string(count) + " times)";
  if (std::fprintf(file, "%s%s\n", line.c_str(), times.c_str()) < 0 || std::fflush(file) != 0) {
    const int error = errno;
    std::fclose(std::exchange(file, nullptr));
    Warn("the driver's log ends here: " + std::generic_category().message(error));
  }
}

void Log::Add(std::string_view text, bool is_error) {
  const std::string line = Plain(text);
  bool is_new = false;
  {
    const std::lock_guard lock(mutex);
    auto found = lines.find(line);
    if (found == lines.end() && lines.size() < kMostLines) {
      found = lines.emplace(line, Line{}).first;
      is_new = true;
    }
    if (found == lines.end()) {
      Write(line, ++further);
    } else {
      Write(line, ++found->second.count);
      found->second.is_error = is_error;
    }
  }
  if (is_new) {
    Detail("driver: " + line);
  }
}

}  // namespace

void CatchDriverLines() {
  SetOrvaConsole([](const char* line, bool is_error) { TheLog().Add(line, is_error); });
  // The tool's own copy of the driver's readers, for check and info, has nothing to say.
  tevoro::lidar::SetConsoleSink([](const char*, bool) {});
}

void AddDriverLogOption(CLI::App& command) {
  command
      .add_option_function<std::string>(
          "--driver-log",
          [](const std::string& path) {
            Log& log = TheLog();
            const std::lock_guard lock(log.mutex);
            std::error_code ignored;
            const bool device = std::filesystem::is_other(path, ignored);
            log.file = std::fopen(path.c_str(), device ? "we" : "wxe");
            if (log.file == nullptr) {
              throw Failure("cannot write the driver's log " + path + ": " +
                            std::generic_category().message(errno) + ". Choose another place.");
            }
          },
          "File for the lines that the driver prints")
      ->type_name("FILE");
}

std::string DriverComplaints() {
  Log& log = TheLog();
  const std::lock_guard lock(log.mutex);
  std::vector<std::pair<std::uint64_t, std::string>> complaints;
  for (const auto& [text, line] : log.lines) {
    const bool trouble = std::any_of(std::begin(kTrouble), std::end(kTrouble),
                                     [&text = text](const char* start) { return text.rfind(start, 0) == 0; });
    if (trouble || line.is_error) {
      complaints.emplace_back(line.count, text);
    }
  }
  std::stable_sort(complaints.begin(), complaints.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::string text;
  for (std::size_t i = 0; i < std::min(complaints.size(), kShownComplaints); ++i) {
    text += "  " + std::to_string(complaints[i].first) + " x " + complaints[i].second + "\n";
  }
  if (complaints.size() > kShownComplaints || log.further > 0) {
    text += "  and others; --driver-log FILE tells of them all\n";
  }
  return text;
}

}  // namespace orva
