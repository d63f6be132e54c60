// SPDX-License-Identifier: Apache-2.0
//
// The other end of the driver's sockets, on 127.0.0.1, and what the kernel tells of this process.
#pragma once

#include <arpa/inet.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "sim/udp_endpoint.h"

namespace orva::test {

inline constexpr const char* kLoopback = "127.0.0.1";

/// Far beyond anything but a hang, also with sanitizers on a busy machine.
inline constexpr std::chrono::seconds kPatience{60};

/// Polls until `condition` holds. For what the driver shows only from outside; false after kPatience.
inline bool Eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

/// A UDP socket on a port of the kernel's choice.
class UdpPeer {
 public:
  uint16_t Port() const { return endpoint_.Port(); }

  void Send(uint16_t port, const void* data, size_t size) const {
    endpoint_.Send({static_cast<const uint8_t*>(data), size}, sim::MakeAddress(kLoopback, port));
  }
  void Send(uint16_t port, const std::string& bytes) const { Send(port, bytes.data(), bytes.size()); }

  /// One datagram and its sender's port; empty when none comes in time.
  std::string Receive(uint16_t* sender, int milliseconds) const {
    std::string bytes(4096, '\0');
    sockaddr_in from{};
    bytes.resize(
        endpoint_.Receive({reinterpret_cast<uint8_t*>(bytes.data()), bytes.size()}, from, milliseconds));
    if (sender != nullptr) *sender = ntohs(from.sin_port);
    return bytes;
  }

 private:
  sim::UdpEndpoint endpoint_{kLoopback, 0};
};

/// A port that was free a moment ago, each time another. Where it is left to the kernel, a socket that shares
/// its address, as those of the driver do, now and then gets the port of another, and either takes what was
/// sent to both.
inline uint16_t FreePort() {
  static std::mutex mutex;
  static std::set<uint16_t> given;
  const std::lock_guard lock(mutex);
  for (;;) {
    const uint16_t port = UdpPeer().Port();
    if (given.insert(port).second) return port;
  }
}

/// Bytes that wait in the UDP socket bound to `port`; nothing where there is none.
inline std::optional<unsigned long> WaitingBytes(uint16_t port) {
  std::ifstream table("/proc/net/udp");
  for (std::string line; std::getline(table, line);) {
    unsigned local = 0;
    unsigned long waiting = 0;
    const int found = std::sscanf(line.c_str(), " %*[^:]: %*8x:%x %*s %*x %*x:%lx", &local, &waiting);
    if (found == 2 && local == port) return waiting;
  }
  return std::nullopt;
}

inline size_t CountEntries(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}
inline size_t Threads() {
  // Together with the first thread, the thread sanitizer starts one of its own that stays.
  [[maybe_unused]] static const bool warm = (std::thread([] {}).join(), true);
  return CountEntries("/proc/self/task");
}

}  // namespace orva::test
