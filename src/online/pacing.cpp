// SPDX-License-Identifier: Apache-2.0
#include "online/pacing.h"

#include <sys/prctl.h>

#include <cerrno>
#include <ctime>

namespace tevoro::lidar {
namespace {

constexpr unsigned long kDefaultSlack = 0;  // the kernel reads 0 as "the thread's default"
constexpr unsigned long kIdleSlack = 1'000'000;
constexpr std::chrono::seconds kIdleAfter{1};
/// Packets between two pauses at most, so that an overload leaves the core to others now and then.
constexpr int kLongestRun = 64;

}  // namespace

void Pacing::Sleep(Cycle cycle) {
  if (cycle == Cycle::kBacklog && ++run_ < kLongestRun) return;
  run_ = 0;

  const unsigned long wanted = WantedSlack(cycle);
  if (wanted != slack_ && prctl(PR_SET_TIMERSLACK, wanted, 0, 0, 0) == 0) slack_ = wanted;

  timespec pause{0, 1000};
  while (nanosleep(&pause, &pause) != 0 && errno == EINTR) {
    // Unreached: the tests send no signal to these threads
  }
}

unsigned long Pacing::WantedSlack(Cycle cycle) {
  const Clock::time_point now = Clock::now();
  if (cycle != Cycle::kIdle) last_packet_ = now;
  return now - last_packet_ > kIdleAfter ? kIdleSlack : kDefaultSlack;
}

}  // namespace tevoro::lidar
