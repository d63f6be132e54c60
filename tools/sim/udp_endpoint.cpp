// SPDX-License-Identifier: Apache-2.0
#include "udp_endpoint.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace orva::sim {

sockaddr_in MakeAddress(const std::string& ip, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1) {
    throw std::invalid_argument("'" + ip + "' is no IPv4 address");
  }
  return address;
}

UdpEndpoint::UdpEndpoint(const std::string& ip, uint16_t port) {
  const sockaddr_in address = MakeAddress(ip, port);
  socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket_ < 0 || bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    const int error = errno;
    if (socket_ >= 0) close(socket_);
    throw std::runtime_error("cannot use UDP port " + std::to_string(port) + " of " + ip + ": " +
                             std::generic_category().message(error));
  }
}

UdpEndpoint::~UdpEndpoint() {
  close(socket_);
}

uint16_t UdpEndpoint::Port() const {
  sockaddr_in address{};
  socklen_t size = sizeof(address);
  getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

bool UdpEndpoint::Send(std::span<const uint8_t> bytes, const sockaddr_in& to) const {
  const ssize_t sent =
      sendto(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
  return sent == static_cast<ssize_t>(bytes.size());
}

size_t UdpEndpoint::Receive(std::span<uint8_t> buffer, sockaddr_in& from, int timeout_ms) const {
  pollfd waited{socket_, POLLIN, 0};
  if (poll(&waited, 1, timeout_ms) <= 0) return 0;
  socklen_t size = sizeof(from);
  const ssize_t count =
      recvfrom(socket_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
  return count > 0 ? static_cast<size_t>(count) : 0;
}

}  // namespace orva::sim
