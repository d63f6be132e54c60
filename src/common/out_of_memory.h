// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <new>

#include "common/counter.h"

namespace tevoro::lidar {

/// Takes a step on one of the driver's own threads, which must outlast a lack of memory. False, and counted,
/// when memory ran out in the step: what it was about to do is then dropped.
template <typename Step>
bool Survives(Counter& out_of_memory, const Step& step) {
  try {
    step();
    return true;
  } catch (const std::bad_alloc&) {
    out_of_memory.Add();
    return false;
  }
}

}  // namespace tevoro::lidar
