// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orva::test {

/// Moves the program's `time()` forward, for rules that count whole seconds. Stands still otherwise.
void AdvanceClock(long seconds);

/// Calls of `operator new` so far, on all threads.
unsigned long AllocationCount();

}  // namespace orva::test
