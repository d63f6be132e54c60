// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_STANDARD_OUTPUT_H_
#define ORVA_TOOLS_SHARED_STANDARD_OUTPUT_H_

#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

#include "shared/failure.h"

namespace orva {

/// For a command whose result is a report. Throws Failure where it cannot be written whole.
inline void PrintResult(const std::string& text) {
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure("the report cannot be written: " + std::generic_category().message(errno) + ".");
  }
}

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_STANDARD_OUTPUT_H_
