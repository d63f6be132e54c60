// SPDX-License-Identifier: Apache-2.0
#include "interrupt.h"

#include <csignal>
#include <ctime>

namespace orva {
namespace {

volatile std::sig_atomic_t interrupted = 0;
timespec first = {};

/// One key press can arrive twice, from the terminal and from a parent that passes it on: only a signal that
/// comes a second later is a second wish.
constexpr double kSecondWish = 1.0;

extern "C" void OnSignal(int number) {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  if (interrupted == 0) {
    first = now;
    interrupted = 1;
  } else if (static_cast<double>(now.tv_sec - first.tv_sec) +
                 static_cast<double>(now.tv_nsec - first.tv_nsec) * 1e-9 >
             kSecondWish) {
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
  return interrupted != 0;
}

}  // namespace orva
