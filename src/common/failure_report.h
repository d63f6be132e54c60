// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tevoro::lidar {

/// Names a call that fails over and over once: a line when it begins to fail, one when it fails for another
/// reason, and none while it goes on. After a success all is said again. Used by one thread at a time.
class FailureReport {
 public:
  /// `what` begins the line and outlives this; the system's reason follows it.
  explicit FailureReport(const char* what) : what_(what) {}

  void Succeeded() { named_ = 0; }
  /// Throws nothing: where memory for the line lacks, the next failure has it.
  void Failed(int error) noexcept;

 private:
  const char* what_;
  int named_ = 0;  ///< the reason that the latest line gave
};

}  // namespace tevoro::lidar
