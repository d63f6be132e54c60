// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "common/counter.h"

namespace tevoro::lidar {

/// First-in-first-out queue between threads. No operation waits for an element: consumers poll.
///
/// A ring that doubles when it is full, so a queue that has seen its highest level allocates nothing any more
/// (a std::deque takes and returns a chunk every few elements as it moves along).
template <typename T>
class SyncQueue {
 public:
  SyncQueue() = default;
  SyncQueue(const SyncQueue&) = delete;
  SyncQueue& operator=(const SyncQueue&) = delete;

  /// Appends a copy of `item`; returns the number of elements that then wait.
  uint64_t Push(const T& item) {
    const std::lock_guard lock(mutex_);
    if (ring_.count == ring_.slots.size()) ring_.Grow();
    ring_.At(ring_.count++) = item;
    level_.store(ring_.count, std::memory_order_release);
    return ring_.count;
  }

  /// Takes the oldest element; an empty T when there is none.
  T Pop() {
    bool more;
    return Pop(more);
  }

  /// The same; `more` tells whether elements were left behind.
  T Pop(bool& more) {
    const std::lock_guard lock(mutex_);
    more = ring_.count > 1;
    if (ring_.count == 0) return T();
    T item = std::exchange(ring_.At(0), T());
    ring_.head = (ring_.head + 1) % ring_.slots.size();
    --ring_.count;
    level_.store(ring_.count, std::memory_order_release);
    return item;
  }

  /// Discards everything. The elements are released after the lock, which thousands of them would hold up.
  void Clear() {
    Ring discarded;
    const std::lock_guard lock(mutex_);
    std::swap(ring_, discarded);
    discarded_.Add(discarded.count);
    level_.store(0, std::memory_order_release);
  }

  /// Counts an element as discarded that could not be appended. By the thread that appends.
  void CountDiscarded() {
    const std::lock_guard lock(mutex_);
    discarded_.Add();
  }

  // For statistics. They take no lock, so whoever looks holds nobody up.
  uint64_t Waiting() const { return level_.load(std::memory_order_acquire); }
  uint64_t Discarded() const { return discarded_.Value(); }  ///< by Clear, since construction

 private:
  struct Ring {
    std::vector<T> slots;
    size_t head = 0;  ///< slot of the oldest element
    size_t count = 0;

    T& At(size_t index) { return slots[(head + index) % slots.size()]; }

    void Grow() {
      constexpr size_t kFirstSlots = 16;
      std::vector<T> larger(slots.empty() ? kFirstSlots : 2 * slots.size());
      for (size_t i = 0; i < count; ++i) larger[i] = std::move(At(i));
      slots = std::move(larger);
      head = 0;
    }
  };

  std::mutex mutex_;
  Ring ring_;
  std::atomic<uint64_t> level_{0};  ///< elements at this moment; written under the lock
  Counter discarded_;
};

}  // namespace tevoro::lidar
