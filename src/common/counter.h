// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

namespace tevoro::lidar {

/// A count that one thread at a time keeps and any thread reads. Counting is a plain load, add and store:
/// with a single writer nothing can get lost between them, and no other core is held up. Who sees a count
/// sees also what that thread had counted before.
class Counter {
 public:
  void Add(uint64_t count = 1) {
    value_.store(value_.load(std::memory_order_relaxed) + count, std::memory_order_release);
  }
  uint64_t Value() const { return value_.load(std::memory_order_acquire); }

 private:
  std::atomic<uint64_t> value_{0};
};

}  // namespace tevoro::lidar
