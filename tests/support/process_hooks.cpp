// SPDX-License-Identifier: Apache-2.0
//
// Replaces the clock and the allocator of the program that links it.
#include "support/process_hooks.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <new>

namespace {
std::atomic<std::time_t> clock_seconds{1700000000};
std::atomic<unsigned long> allocations{0};
}  // namespace

namespace orva::test {
void AdvanceClock(long seconds) {
  clock_seconds += seconds;
}
unsigned long AllocationCount() {
  return allocations;
}
}  // namespace orva::test

extern "C" std::time_t time(std::time_t* result) noexcept {
  const std::time_t now = clock_seconds;
  if (result != nullptr) *result = now;
  return now;
}

void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
