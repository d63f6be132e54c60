// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace orva::sim {

// Times of a clock that no one sets, in nanoseconds.

int64_t SteadyNow();
void SleepUntil(int64_t deadline);
/// Lets the calling thread's sleeps end when they are due; by default the kernel takes 50 microseconds more.
void SleepSharply();

}  // namespace orva::sim
