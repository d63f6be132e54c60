// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "common/failure_report.h"

namespace tevoro::lidar {

/// A named thread with its running flag. The body polls Running() and returns when it is false.
class WorkerThread {
 public:
  /// `name` is shown by the system's tools; at most 15 characters.
  explicit WorkerThread(std::string name) : name_(std::move(name)) {}
  ~WorkerThread() { Stop(); }
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  /// Sets the flag and launches `body`. True also when it runs already. False when the system refuses a
  /// thread, which a line on standard error says, or when called on this very thread after its own Stop.
  bool Start(std::function<void()> body);

  /// Clears the flag and joins. Called on this very thread it only clears the flag; the next Start, Stop or
  /// destructor on another thread joins.
  void Stop();

  /// Only clears the flag; from any thread.
  void RequestStop() { running_ = false; }

  bool Running() const { return running_; }
  bool IsCurrent() const { return thread_id_ == std::this_thread::get_id(); }

 private:
  void Join();

  const std::string name_;
  std::atomic<bool> running_{false};
  std::atomic<std::thread::id> thread_id_{};
  std::thread thread_;
  FailureReport failures_{"thread creation failed"};
};

}  // namespace tevoro::lidar
