// SPDX-License-Identifier: Apache-2.0
#include "input/udp_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "common/console.h"

namespace tevoro::lidar {
namespace {

void Enlarge(int socket, int option) {
  int bytes = 0;
  socklen_t length = sizeof(bytes);
  if (getsockopt(socket, SOL_SOCKET, option, &bytes, &length) != 0)
    return;  // four times nothing is too little. Unreached: every system knows these options
  bytes = std::min(bytes, std::numeric_limits<int>::max() / 4) * 4;
  setsockopt(socket, SOL_SOCKET, option, &bytes, sizeof(bytes));
}

enum class Event { kRead, kWrite };

/// As select does it, for descriptors that do not fit into its sets.
int Poll(int socket, Event event, int milliseconds) {
  pollfd entry{socket, static_cast<short>(event == Event::kRead ? POLLIN : POLLOUT), 0};
  const int ready = milliseconds < 0 ? 0 : poll(&entry, 1, milliseconds);
  if (ready < 1 || (entry.revents & POLLNVAL) == 0) return ready;
  // Unreached: only where an application closes a descriptor that is not its own, above 1023 at that
  errno = EBADF;
  return -1;
}

/// Above 0: the socket is ready; 0: the time is over; -1: errno says why.
int Wait(int socket, Event event, int milliseconds) {
  if (socket < 0 || socket >= FD_SETSIZE) return Poll(socket, event, milliseconds);
  fd_set set;
  FD_ZERO(&set);
  FD_SET(socket, &set);
  timeval timeout{milliseconds / 1000, (milliseconds % 1000) * 1000};
  const int ready = event == Event::kRead ? select(socket + 1, &set, nullptr, nullptr, &timeout)
                                          : select(socket + 1, nullptr, &set, nullptr, &timeout);
  return ready < 1 ? ready : FD_ISSET(socket, &set);
}

}  // namespace

sockaddr_in MakeAddress(const std::string& address, uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  if (!address.empty()) inet_pton(AF_INET, address.c_str(), &result.sin_addr);
  return result;
}

bool UdpSocket::Open(const std::string& address, uint16_t port) {
  socket_ =
      socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);  // a child of the application must not keep the port
  if (socket_ < 0) {
    PrintSystemError("socket creation failed", errno);
    return false;
  }
  const int reuse = 1;
  if (setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse)) < 0) {
    PrintSystemError("setsockopt failed", errno);
    Close();
    return false;
  }
  const sockaddr_in local = MakeAddress(address, port);
  if (bind(socket_, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) < 0) {
    PrintSystemError("bind failed", errno);
    Close();
    return false;
  }
  if (!SetNonblock()) {
    PrintSystemError("fcntl failed", errno);
    return false;
  }
  SetReadBuffer();
  SetWriteBuffer();
  return true;
}

void UdpSocket::Close() {
  if (socket_ >= 0) close(socket_);
  socket_ = -1;
}

bool UdpSocket::SetNonblock() {
  const int flags = fcntl(socket_, F_GETFL, 0);
  return flags >= 0 && fcntl(socket_, F_SETFL, flags | O_NONBLOCK) >= 0;
}

void UdpSocket::SetReadBuffer() {
  Enlarge(socket_, SO_RCVBUF);
}

void UdpSocket::SetWriteBuffer() {
  Enlarge(socket_, SO_SNDBUF);
}

uint64_t UdpSocket::ReadBuffer() const {
  int bytes = 0;
  socklen_t length = sizeof(bytes);
  getsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &bytes, &length);
  return static_cast<uint64_t>(bytes);
}

uint32_t UdpSocket::Drops() const {
  uint32_t figures[SK_MEMINFO_VARS] = {};
  socklen_t length = sizeof(figures);
  getsockopt(socket_, SOL_SOCKET, SO_MEMINFO, figures, &length);
  return figures[SK_MEMINFO_DROPS];
}

bool UdpSocket::WaitReadEvent(int milliseconds) {
  return Report(Wait(socket_, Event::kRead, milliseconds));
}

bool UdpSocket::WaitWriteEvent(int milliseconds) {
  return Report(Wait(socket_, Event::kWrite, milliseconds));
}

/// A signal is no failure.
bool UdpSocket::Report(int ready) {
  if (ready >= 0) {
    wait_failures_.Succeeded();
  } else if (errno != EINTR) {
    wait_failures_.Failed(errno);
  }
  return ready > 0;
}

}  // namespace tevoro::lidar
