// SPDX-License-Identifier: Apache-2.0
#include "input/udp_select.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace tevoro::lidar {
namespace {

constexpr int kWaitMilliseconds = 100;

std::string Dotted(const in_addr& address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, text, sizeof(text));
  return text;
}

}  // namespace

int UDPSelect::RecvData(char* data, const int& length) {
  if (!WaitReadEvent(kWaitMilliseconds)) return 0;

  sockaddr_in sender{};
  socklen_t sender_length = sizeof(sender);
  const ssize_t count = recvfrom(socket_.Descriptor(), data, static_cast<size_t>(std::max(length, 0)), 0,
                                 reinterpret_cast<sockaddr*>(&sender), &sender_length);
  if (count <= 0) return -1;
  if (lidar_ip_.empty()) lidar_ip_ = Dotted(sender.sin_addr);
  if (lidar_port_ == 0) lidar_port_ = ntohs(sender.sin_port);
  return static_cast<int>(count);
}

bool UDPSelect::SendData(const char* data, const int& length) {
  if (!WaitWriteEvent(kWaitMilliseconds)) return false;

  const sockaddr_in sensor = MakeAddress(lidar_ip_, static_cast<uint16_t>(lidar_port_));
  const ssize_t sent = sendto(socket_.Descriptor(), data, static_cast<size_t>(std::max(length, 0)), 0,
                              reinterpret_cast<const sockaddr*>(&sensor), sizeof(sensor));
  const bool known = !lidar_ip_.empty() && lidar_port_ != 0;
  if (sent >= 0) {
    send_failures_.Succeeded();
  } else if (known && errno != EAGAIN && errno != EINTR) {
    send_failures_.Failed(errno);
  }
  return sent == length;
}

}  // namespace tevoro::lidar
