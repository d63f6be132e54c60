// SPDX-License-Identifier: Apache-2.0
#include "common/failure_report.h"

#include <new>

#include "common/console.h"

namespace tevoro::lidar {

void FailureReport::Failed(int error) noexcept {
  if (error == named_) return;
  try {
    PrintSystemError(what_, error);
    named_ = error;
  } catch (const std::bad_alloc&) {
    // Unreached: no test makes calls fail and takes memory at a time
  }
}

}  // namespace tevoro::lidar
