// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_FAILURE_H_
#define ORVA_TOOLS_SHARED_FAILURE_H_

#include <stdexcept>

namespace orva {

/// The job could not be done; the tool prints the text and exits with 1. The text says what to do about it.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The command line makes no sense; the tool prints the text and exits with 2.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_FAILURE_H_
