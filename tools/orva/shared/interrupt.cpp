// SPDX-License-Identifier: Apache-2.0
#include "shared/interrupt.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <ctime>

namespace orva {
namespace {

/// Monotonic time of the first signal in nanoseconds; 0: none yet. Atomic, since any thread may run the
/// handler.
std::atomic<std::int64_t> first_signal = 0;
static_assert(std::atomic<std::int64_t>::is_always_lock_free, "what a signal handler may touch");

/// One key press can arrive twice, from the terminal and from a parent that passes it on: only a signal that
/// comes a second later is a second wish.
constexpr std::int64_t kSecondWish = 1'000'000'000;

extern "C" void OnSignal(int number) {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const std::int64_t time = std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
  std::int64_t first = 0;
  if (!first_signal.compare_exchange_strong(first, time) && time - first > kSecondWish) {
    std::signal(number, SIG_DFL);
    std::raise(number);
  }
}

}  // namespace

void CatchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  sigaddset(&action.sa_mask, SIGINT);  // the two do not interrupt each other
  sigaddset(&action.sa_mask, SIGTERM);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool Interrupted() {
  return first_signal != 0;
}

}  // namespace orva
