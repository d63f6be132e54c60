// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace orva::sim {

/// An IPv4 address as the system wants it. Throws std::invalid_argument for a text that is none.
sockaddr_in MakeAddress(const std::string& ip, uint16_t port);

/// A bound UDP socket, closed with the object. Set-up problems throw std::runtime_error.
class UdpEndpoint {
 public:
  /// Port 0: chosen by the kernel.
  UdpEndpoint(const std::string& ip, uint16_t port);
  ~UdpEndpoint();
  UdpEndpoint(const UdpEndpoint&) = delete;
  UdpEndpoint& operator=(const UdpEndpoint&) = delete;

  uint16_t Port() const;
  /// False when the system did not take it, for example because nobody listens on this machine.
  bool Send(std::span<const uint8_t> bytes, const sockaddr_in& to) const;
  /// Waits at most `timeout_ms`. Returns the bytes received, 0 when there were none.
  size_t Receive(std::span<uint8_t> buffer, sockaddr_in& from, int timeout_ms) const;

 private:
  int socket_ = -1;
};

}  // namespace orva::sim
