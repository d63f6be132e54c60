// SPDX-License-Identifier: Apache-2.0
#include "common/console.h"

#include <cstdio>

namespace tevoro::lidar {
namespace {

/// Holds the stream's own lock, so that the application's writes do not get in between either.
void WriteWhole(std::FILE* stream, const std::string& text) {
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
  return "";
}

}  // namespace

void PrintLine(std::string_view line) {
  WriteWhole(stdout, std::string(line) + '\n');
}

void PrintLine(Colour colour, std::string_view line) {
  WriteWhole(stdout, std::string(Escape(colour)).append(line) + "\033[0m\n");
}

void PrintErrorLine(std::string_view line) {
  WriteWhole(stderr, std::string(line) + '\n');
}

}  // namespace tevoro::lidar
