// SPDX-License-Identifier: Apache-2.0
#include "console.h"

#include <orva_driver.h>
#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <mutex>

namespace orva_python {
namespace {

constexpr std::size_t kMostLines = 1000;

struct Lines {
  std::mutex mutex;
  std::deque<std::string> kept;
  std::uint64_t count = 0;
  bool shown = false;
};

/// Never destroyed: drivers may print while the process ends.
Lines& TheLines() {
  static auto* lines = new Lines;
  return *lines;
}

std::string WithoutColours(const char* line) {
  std::string plain;
  for (const char* at = line; *at != '\0'; ++at) {
    if (*at == '\033') {
      while (at[1] != '\0' && *at != 'm') ++at;
    } else {
      plain += *at;
    }
  }
  return plain;
}

void TakeLine(const char* line, bool is_error) {
  Lines& lines = TheLines();
  const std::lock_guard lock(lines.mutex);
  lines.kept.push_back(WithoutColours(line));
  if (lines.kept.size() > kMostLines) lines.kept.pop_front();
  ++lines.count;
  if (lines.shown) {
    std::FILE* stream = is_error ? stderr : stdout;
    std::fprintf(stream, "%s\n", line);
    std::fflush(stream);
  }
}

}  // namespace

void KeepConsoleLines() {
  SetOrvaConsole(TakeLine);
  // A driver's thread may hold the lock while another thread forks.
  pthread_atfork([] { TheLines().mutex.lock(); }, [] { TheLines().mutex.unlock(); },
                 [] { TheLines().mutex.unlock(); });
}

std::uint64_t ConsoleLineCount() {
  Lines& lines = TheLines();
  const std::lock_guard lock(lines.mutex);
  return lines.count;
}

std::vector<std::string> ConsoleLines(std::uint64_t first) {
  Lines& lines = TheLines();
  const std::lock_guard lock(lines.mutex);
  const std::uint64_t dropped = lines.count - lines.kept.size();
  const auto skipped = std::min<std::uint64_t>(first > dropped ? first - dropped : 0, lines.kept.size());
  return {lines.kept.begin() + static_cast<std::ptrdiff_t>(skipped), lines.kept.end()};
}

void ShowConsoleLines(bool show) {
  Lines& lines = TheLines();
  const std::lock_guard lock(lines.mutex);
  lines.shown = show;
}

}  // namespace orva_python
