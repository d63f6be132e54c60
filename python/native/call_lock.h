// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <chrono>
#include <mutex>

#include "frame.h"

namespace orva_python {

/// Ctrl-C is looked for at this pace in every wait.
constexpr std::chrono::milliseconds kSlice(50);

/// Lets one Python thread at a time call a driver, which is not synchronised itself.
class CallLock {
 public:
  /// Waits for its turn. Throws what `check` throws, and Forked.
  std::unique_lock<std::timed_mutex> Take(const Check& check) {
    RequireOwnProcess();
    std::unique_lock lock(mutex_, std::defer_lock);
    while (!lock.try_lock_for(kSlice)) check();
    return lock;
  }

  bool InOwnProcess() const { return getpid() == process_; }
  void RequireOwnProcess() const {
    if (!InOwnProcess()) throw Forked();
  }

 private:
  const pid_t process_ = getpid();
  std::timed_mutex mutex_;
};

}  // namespace orva_python
