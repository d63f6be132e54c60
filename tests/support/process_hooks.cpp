// SPDX-License-Identifier: Apache-2.0
//
// Replaces the clock and the allocator of the program that links it.
#include "support/process_hooks.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <new>

namespace {
std::atomic<std::time_t> clock_seconds{1700000000};
thread_local unsigned long allocations = 0;
std::atomic<unsigned long> total_allocations{0};

void* Allocate(std::size_t size, std::size_t alignment) {
  ++allocations;
  total_allocations.fetch_add(1, std::memory_order_relaxed);
  void* memory = std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
}  // namespace

namespace orva::test {
void AdvanceClock(long seconds) {
  clock_seconds += seconds;
}
unsigned long AllocationCount() {
  return allocations;
}
unsigned long TotalAllocationCount() {
  return total_allocations;
}
}  // namespace orva::test

extern "C" std::time_t time(std::time_t* result) noexcept {
  const std::time_t now = clock_seconds;
  if (result != nullptr) *result = now;
  return now;
}

void* operator new(std::size_t size) {
  return Allocate(size == 0 ? 1 : size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return Allocate(size == 0 ? 1 : size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  std::free(memory);
}
