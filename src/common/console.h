// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace tevoro::lidar {

/// Writes `line` and a line end to standard output and flushes it. The line goes out whole: lines of several
/// threads never mix.
void PrintLine(std::string_view line);

/// The same in bold and the given colour, reset before the line end.
enum class Colour { kRed, kGreen, kYellow };
void PrintLine(Colour colour, std::string_view line);

/// Writes `line` and a line end to standard error, whole.
void PrintErrorLine(std::string_view line);

}  // namespace tevoro::lidar
