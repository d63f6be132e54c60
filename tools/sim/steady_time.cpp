// SPDX-License-Identifier: Apache-2.0
#include "steady_time.h"

#include <sys/prctl.h>
#include <time.h>

#include <cerrno>

namespace orva::sim {
namespace {

constexpr int64_t kSecond = 1'000'000'000;

}  // namespace

int64_t SteadyNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

void SleepUntil(int64_t deadline) {
  const timespec at{deadline / kSecond, deadline % kSecond};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == EINTR) {
  }
}

void SleepSharply() {
  prctl(PR_SET_TIMERSLACK, 1UL);  // nanoseconds
}

}  // namespace orva::sim
