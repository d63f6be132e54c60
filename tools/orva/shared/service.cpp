// SPDX-License-Identifier: Apache-2.0
#include "shared/service.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace orva {

void TellServiceManager(const char* state) {
  const char* const path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  if (path == nullptr || (path[0] != '/' && path[0] != '@')) return;
  const size_t length = std::strlen(path);
  if (length >= sizeof(address.sun_path)) return;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path, length);
  if (path[0] == '@') address.sun_path[0] = '\0';  // a name outside the file system
  const int socket_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (socket_fd < 0) return;
  // Whoever does not listen is not told again: the next word is due in a second.
  static_cast<void>(sendto(socket_fd, state, std::strlen(state), MSG_NOSIGNAL,
                           reinterpret_cast<const sockaddr*>(&address),
                           static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length)));
  close(socket_fd);
}

}  // namespace orva
