// SPDX-License-Identifier: Apache-2.0
#include "sessions/other_listeners.h"

#include <arpa/inet.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "shared/terminal.h"
#include "shared/words.h"

namespace orva {
namespace {

/// Sockets in a table of the kernel's (`cat /proc/self/net/udp`) on this port, on `address` or on all
/// addresses. `address` 0: on any. A connected socket takes its peer's datagrams only and is left out.
std::uint64_t CountListeners(const char* table, std::uint16_t port, std::uint32_t address) {
  std::uint64_t count = 0;
  std::ifstream file(table);
  std::string line;
  std::getline(file, line);  // the head
  while (std::getline(file, line)) {
    // "  12: 0100007F:1A2B 00000000:0000 07 ...": an address is the hexadecimal of its words as they lie in
    // memory, 8 digits for IPv4 and 32 for IPv6.
    char local[33];
    char remote[33];
    unsigned local_port = 0;
    unsigned remote_port = 0;
    if (std::sscanf(line.c_str(), "%*u: %32[0-9A-F]:%4X %32[0-9A-F]:%4X", local, &local_port, remote,
                    &remote_port) != 4 ||
        local_port != port || remote_port != 0) {
      continue;
    }
    std::uint32_t bound = 0;
    const std::string digits = local;
    const bool is_v4 = digits.size() == 8;
    const bool takes_all = digits.find_first_not_of('0') == std::string::npos;
    if (is_v4) {
      std::sscanf(local, "%8" SCNx32, &bound);
    }
    count += takes_all || (is_v4 && (address == 0 || bound == address));
  }
  return count;
}

}  // namespace

void WarnOfOtherListeners(const InputParam& input) {
  in_addr address = {};
  inet_pton(AF_INET, input.host_ip.c_str(), &address);
  // By way of this process: a service may see no more of /proc than processes.
  const std::uint64_t count = CountListeners("/proc/self/net/udp", input.msop_port, address.s_addr) +
                              CountListeners("/proc/self/net/udp6", input.msop_port, address.s_addr);
  if (count > 0) {
    const std::string port = std::to_string(input.msop_port);
    Warn(Counted(count, "other socket of this machine listens", "other sockets of this machine listen") +
         " on UDP port " + port +
         " already. Each packet reaches one of them only: this program may get a "
         "part or nothing. 'ss -ulpn sport = " +
         port + "' names the other.");
  }
}

}  // namespace orva
