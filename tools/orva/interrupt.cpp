// SPDX-License-Identifier: Apache-2.0
#include "interrupt.h"

#include <csignal>

namespace orva {
namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnSignal(int) {
  interrupted = 1;
}

}  // namespace

void CatchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // the second one takes its default effect
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool Interrupted() {
  return interrupted != 0;
}

}  // namespace orva
