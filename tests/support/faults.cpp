// SPDX-License-Identifier: Apache-2.0
//
// Stands between the program that links it, its libraries included, and the system.
#include "support/faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string_view>

namespace orva::test {
namespace {

std::atomic<On> failing_threads{On::kThisThread};
std::atomic<unsigned long> failing_number{0};
std::atomic<bool> allocation_failed{false};
thread_local bool armed_here = false;
thread_local long live = 0;

std::atomic<const char*> failing_call{""};
std::atomic<int> failing_error{0};
std::atomic<unsigned long> failed_calls{0};
std::atomic<long> clock_shift{0};

/// The driver names its threads.
bool OnDriverThread() {
  char name[16] = "";
  pthread_getname_np(pthread_self(), name, sizeof(name));
  return std::strncmp(name, "orva-", 5) == 0;
}

std::string_view Library(const void* caller) {
  Dl_info info{};
  return dladdr(caller, &info) != 0 && info.dli_fname != nullptr ? info.dli_fname : "";
}

/// libpcap's compiler of filters does not bear a failed allocation, so it is spared.
bool AllocationFails(const void* caller) {
  if (failing_number == 0) return false;
  if (failing_threads == On::kThisThread ? !armed_here : !OnDriverThread()) return false;
  if (Library(caller).find("libpcap") != std::string_view::npos) return false;
  if (failing_number.fetch_sub(1) != 1) return false;
  allocation_failed = true;
  return true;
}

bool CallFails(const char* name, const void* caller) {
  const int error = failing_error;
  if (error == 0 || std::strcmp(name, failing_call) != 0) return false;
  const std::string_view library = Library(caller);
  if (library.find("liborva_driver") == std::string_view::npos &&
      library.find("libpcap") == std::string_view::npos &&
      library.find("libstdc++") == std::string_view::npos) {  // which launches the threads
    return false;
  }
  ++failed_calls;
  errno = error;
  return true;
}

template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void FailAllocation(On threads, unsigned long number) {
  armed_here = threads == On::kThisThread;
  allocation_failed = false;
  failing_threads = threads;
  failing_number = number;
}
bool AllocationFailed() {
  return allocation_failed;
}
long LiveAllocations() {
  return live;
}

void FailCalls(const char* name, int error) {
  failing_error = 0;
  failed_calls = 0;
  failing_call = name;
  failing_error = error;
}
unsigned long FailedCalls() {
  return failed_calls;
}

void ShiftClock(long seconds) {
  clock_shift = seconds;
}

}  // namespace orva::test

using orva::test::AllocationFails;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
void* operator new(std::size_t size) {
  void* memory = AllocationFails(__builtin_return_address(0)) ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return AllocationFails(__builtin_return_address(0)) ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
#else
// The C library's own, under the names by which a program that replaces malloc may still call them.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);

static void* Counted(void* memory) {
  if (memory != nullptr) ++orva::test::live;
  return memory;
}
static void* Refused() {
  errno = ENOMEM;
  return nullptr;
}

void* malloc(size_t size) {
  return AllocationFails(__builtin_return_address(0)) ? Refused() : Counted(__libc_malloc(size));
}
void* calloc(size_t count, size_t size) {
  return AllocationFails(__builtin_return_address(0)) ? Refused() : Counted(__libc_calloc(count, size));
}
void* realloc(void* memory, size_t size) {
  if (AllocationFails(__builtin_return_address(0))) return Refused();
  void* moved = __libc_realloc(memory, size);
  return memory == nullptr ? Counted(moved) : moved;
}
void* aligned_alloc(size_t alignment, size_t size) {
  return AllocationFails(__builtin_return_address(0)) ? Refused() : Counted(__libc_memalign(alignment, size));
}
void free(void* memory) {
  if (memory != nullptr) --orva::test::live;
  __libc_free(memory);
}
}
#endif

// A call that the driver or libpcap makes, and what it returns when it fails.
#define ORVA_FAULT(Result, name, parameters, arguments, failure)                   \
  extern "C" Result name parameters {                                              \
    if (orva::test::CallFails(#name, __builtin_return_address(0))) return failure; \
    static auto* const real = orva::test::Real<Result parameters>(#name);          \
    return real arguments;                                                         \
  }
ORVA_FAULT(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1)
ORVA_FAULT(int, bind, (int fd, const sockaddr* address, socklen_t length), (fd, address, length), -1)
ORVA_FAULT(int, setsockopt, (int fd, int level, int option, const void* value, socklen_t length),
           (fd, level, option, value, length), -1)
ORVA_FAULT(int, getsockopt, (int fd, int level, int option, void* value, socklen_t* length),
           (fd, level, option, value, length), -1)
ORVA_FAULT(int, select, (int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout),
           (count, read, write, except, timeout), -1)
ORVA_FAULT(ssize_t, recvfrom, (int fd, void* data, size_t size, int flags, sockaddr* from, socklen_t* length),
           (fd, data, size, flags, from, length), -1)
ORVA_FAULT(ssize_t, sendto,
           (int fd, const void* data, size_t size, int flags, const sockaddr* to, socklen_t length),
           (fd, data, size, flags, to, length), -1)
ORVA_FAULT(FILE*, fopen, (const char* path, const char* mode), (path, mode), nullptr)
ORVA_FAULT(DIR*, opendir, (const char* path), (path), nullptr)
ORVA_FAULT(dirent*, readdir, (DIR * folder), (folder), nullptr)
ORVA_FAULT(int, fseeko, (FILE * file, off_t offset, int whence), (file, offset, whence), -1)
ORVA_FAULT(int, pthread_create,
           (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument),
           (thread, attributes, body, argument), orva::test::failing_error)

extern "C" size_t fread(void* data, size_t size, size_t count, FILE* file) {
  if (orva::test::CallFails("fread", __builtin_return_address(0))) {
    file->_flags |= _IO_ERR_SEEN;  // what ferror asks for: no end of the file
    return 0;
  }
  static auto* const real = orva::test::Real<size_t(void*, size_t, size_t, FILE*)>("fread");
  return real(data, size, count, file);
}
extern "C" int fcntl(int fd, int command, ...) {
  if (orva::test::CallFails("fcntl", __builtin_return_address(0))) return -1;
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return orva::test::Real<int(int, int, ...)>("fcntl")(fd, command, argument);
}
extern "C" int open(const char* path, int flags, ...) {
  if (orva::test::CallFails("open", __builtin_return_address(0))) return -1;
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return orva::test::Real<int(const char*, int, ...)>("open")(path, flags, mode);
}
extern "C" std::time_t time(std::time_t* result) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != nullptr) *result = now.tv_sec;
  return now.tv_sec;
}
extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static auto* const real = orva::test::Real<int(clockid_t, timespec*)>("clock_gettime");
  const int result = real(clock, now);
  if (clock == CLOCK_REALTIME) now->tv_sec += orva::test::clock_shift;
  return result;
}
