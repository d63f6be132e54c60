// SPDX-License-Identifier: Apache-2.0
#include "input/input_sock.h"

#include <sys/socket.h>

#include <algorithm>

namespace tevoro::lidar {

int InputSock::RecvPacket(std::shared_ptr<Buffer>& buffer, const int& size, long* /*position*/,
                          const bool& /*record*/) {
  constexpr int kWaitMilliseconds = 100;  // how late a stop request may be noticed
  if (!WaitReadEvent(kWaitMilliseconds)) return 0;

  const size_t room = std::min(static_cast<size_t>(std::max(size, 0)), size_t{buffer->capacity});
  sockaddr_in sender{};
  socklen_t sender_length = sizeof(sender);
  const ssize_t count = recvfrom(socket_.Descriptor(), buffer->data.get(), room, 0,
                                 reinterpret_cast<sockaddr*>(&sender), &sender_length);
  if (count > 0) {
    buffer->offset = 0;
    buffer->length = static_cast<uint64_t>(count);
  } else if (count == 0) {
    empty_.Add();
  }
  return static_cast<int>(count);
}

}  // namespace tevoro::lidar
