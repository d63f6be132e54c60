// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orva_python {

/// The driver's console lines, which belong neither into a notebook nor beside a program's own output. The
/// last thousand are kept for those who ask.
void KeepConsoleLines();

/// A line's number counts from 0 since the start.
std::uint64_t ConsoleLineCount();

/// The lines that are kept, from number `first` on, oldest first, without colours.
std::vector<std::string> ConsoleLines(std::uint64_t first);

/// True: lines go to standard output and standard error as well, as they do in a C++ application.
void ShowConsoleLines(bool show);

}  // namespace orva_python
