// SPDX-License-Identifier: Apache-2.0
#include "common/console.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace tevoro::lidar {
namespace {

/// Where the lines go instead. Sinks are kept for good: a thread may still be in one that was replaced, no
/// lock can be left held in a forked child, and a driver may print while the program ends.
struct Sink {
  ConsoleSink take;
  const Sink* previous;
};
std::atomic<const Sink*> current_sink{nullptr};

/// Holds the stream's own lock, so that the application's writes do not get in between either.
void WriteWhole(std::FILE* stream, std::string text) {
  const Sink* sink = current_sink;
  if (sink != nullptr && sink->take) {
    sink->take(text.c_str(), stream == stderr);
    return;
  }
  text += '\n';
  flockfile(stream);
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
  funlockfile(stream);
}

std::string_view Escape(Colour colour) {
  switch (colour) {
    case Colour::kRed:
      return "\033[1m\033[31m";
    case Colour::kGreen:
      return "\033[1m\033[32m";
    case Colour::kYellow:
      return "\033[1m\033[33m";
  }
  return "";  // Unreached: there is no other colour
}

}  // namespace

void SetConsoleSink(const ConsoleSink& sink) {
  auto* next = new Sink{sink, current_sink};
  while (!current_sink.compare_exchange_weak(next->previous, next)) {
    // Unreached: only for two that set one at the same time
  }
}

void PrintLine(std::string_view line) {
  WriteWhole(stdout, std::string(line));
}

void PrintLine(Colour colour, std::string_view line) {
  WriteWhole(stdout, std::string(Escape(colour)).append(line) + "\033[0m");
}

void PrintErrorLine(std::string_view line) {
  WriteWhole(stderr, std::string(line));
}

void PrintSystemError(std::string_view what, int error) {
  char text[128];
  PrintErrorLine(std::string(what) + ": " + strerror_r(error, text, sizeof(text)));
}

}  // namespace tevoro::lidar
