// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tevoro::lidar {

/// Takes lines without their line end; true for those of standard error.
using ConsoleSink = std::function<void(const char*, bool)>;

/// From now on every line goes to `sink`; an empty one restores the streams. From any thread.
void SetConsoleSink(const ConsoleSink& sink);

/// Writes `line` and a line end to standard output and flushes it. The line goes out whole: lines of several
/// threads never mix.
void PrintLine(std::string_view line);

/// The same in bold and the given colour, reset before the line end.
enum class Colour { kRed, kGreen, kYellow };
void PrintLine(Colour colour, std::string_view line);

/// Writes `line` and a line end to standard error, whole.
void PrintErrorLine(std::string_view line);

/// The same for a failed system call: "what: reason".
void PrintSystemError(std::string_view what, int error);

}  // namespace tevoro::lidar
