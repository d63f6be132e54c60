// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orva::test {

/// Whose allocations fail.
enum class On { kThisThread, kDriverThreads };

/// The `number`-th allocation from now on fails, counted from 1; 0: none.
void FailAllocation(On threads, unsigned long number);
/// Whether it has come to that.
bool AllocationFailed();
/// Allocations of this thread that are not freed; 0 where a sanitizer owns the allocator and looks itself.
long LiveAllocations();

/// Calls of this name fail with `error` where the driver makes them, or libpcap; with 0 none do.
void FailCalls(const char* name, int error);
/// How many have failed since.
unsigned long FailedCalls();

/// Sets the program's wall clock off by so much.
void ShiftClock(long seconds);

}  // namespace orva::test
