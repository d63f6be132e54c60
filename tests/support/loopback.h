// SPDX-License-Identifier: Apache-2.0
//
// The other end of the driver's sockets, on 127.0.0.1.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace orva::test {

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

inline sockaddr_in Loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// A UDP socket on a port of the kernel's choice.
class UdpPeer {
 public:
  UdpPeer() : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof(address);
    if (bind(socket_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      throw std::runtime_error("no loopback socket");
    }
    port_ = ntohs(address.sin_port);
  }
  ~UdpPeer() { close(socket_); }
  UdpPeer(const UdpPeer&) = delete;
  UdpPeer& operator=(const UdpPeer&) = delete;

  uint16_t Port() const { return port_; }

  void Send(uint16_t port, const void* data, size_t size) const {
    const sockaddr_in to = Loopback(port);
    sendto(socket_, data, size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
  }
  void Send(uint16_t port, const std::string& bytes) const { Send(port, bytes.data(), bytes.size()); }

  /// One datagram and its sender's port; empty when none comes in time.
  std::string Receive(uint16_t* sender, int milliseconds) const {
    pollfd entry{socket_, POLLIN, 0};
    if (poll(&entry, 1, milliseconds) != 1) return {};
    std::string bytes(4096, '\0');
    sockaddr_in from{};
    socklen_t length = sizeof(from);
    const ssize_t count =
        recvfrom(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    if (sender != nullptr) *sender = ntohs(from.sin_port);
    return bytes;
  }

 private:
  int socket_;
  uint16_t port_ = 0;
};

/// A port that was free a moment ago.
inline uint16_t FreePort() {
  return UdpPeer().Port();
}

/// The kernel's record of the UDP socket bound to `port`: bytes that wait, datagrams that were dropped.
struct KernelSocket {
  bool found = false;
  unsigned long waiting = 0;
  unsigned long drops = 0;
};
inline KernelSocket LookUp(uint16_t port) {
  std::ifstream table("/proc/net/udp");
  std::string line;
  while (std::getline(table, line)) {
    unsigned local = 0;
    KernelSocket socket{true, 0, 0};
    if (std::sscanf(line.c_str(), " %*[^:]: %*8x:%x %*s %*x %*x:%lx", &local, &socket.waiting) != 2) continue;
    if (local != port) continue;
    socket.drops = std::stoul(line.substr(line.find_last_of(' ', line.find_last_not_of(' ')) + 1));
    return socket;
  }
  return {};
}

inline size_t CountEntries(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}
inline size_t OpenDescriptors() {
  return CountEntries("/proc/self/fd");
}
inline size_t Threads() {
  // Together with the first thread, the thread sanitizer starts one of its own that stays.
  [[maybe_unused]] static const bool warm = (std::thread([] {}).join(), true);
  return CountEntries("/proc/self/task");
}

}  // namespace orva::test
