// SPDX-License-Identifier: Apache-2.0
#include "sessions/packet_losses.h"

#include <cstdint>
#include <initializer_list>
#include <string>

#include "shared/failure.h"

namespace orva {
namespace {

struct Kind {
  std::uint64_t count;
  const char* what;
};

std::string List(std::initializer_list<Kind> kinds) {
  std::string text;
  for (const Kind& kind : kinds) {
    if (kind.count > 0) {
      text += (text.empty() ? "" : ", ") + std::to_string(kind.count) + kind.what;
    }
  }
  return text;
}

}  // namespace

std::string LossText(const DriverStatistics& statistics) {
  const std::string text = List({{statistics.kernel_dropped, " dropped by the kernel"},
                                 {statistics.discarded, " discarded from the queue"},
                                 {statistics.out_of_memory, " for want of memory"}});
  return text.empty() ? "" : "lost: " + text;
}

std::string RefusalText(const DriverStatistics& statistics) {
  return List({{statistics.refused_length, " of wrong length"},
               {statistics.refused_identifier, " of wrong identifier"},
               {statistics.not_for_us, " empty"}});
}

void RequireArrivals(const DriverParam& param, const DriverStatistics& statistics) {
  if (statistics.received > 0 || statistics.kernel_dropped > 0) {
    return;
  }
  const std::string port = std::to_string(param.input_param.msop_port);
  const std::string& host = param.input_param.host_ip;
  std::string text = "nothing arrived on UDP port " + port + ". The usual reasons:\n";
  text += "- the sensor is off, or a cable or switch is\n";
  text += "- it sends to another address than this machine's; 'ip address' lists these\n";
  if (!host.empty()) {
    text += "- it does not send to " + host + ", the only address that --host listens on\n";
  }
  text += "- it sends to another port; 'tcpdump -n -i any udp' shows what reaches the machine\n";
  text += "- a firewall drops it: tcpdump shows it then, and the driver does not see it";
  throw Failure(text);
}

std::string CannotListen(const DriverParam& param) {
  std::string text =
      "cannot open UDP port " + std::to_string(param.input_param.msop_port) + " for the points";
  text += param.calib_from_lidar ? ", or the command port" : "";
  text += ". Another program may hold it, or the address to listen on is none of this machine's ";
  return text + "('ip address' lists them).";
}

}  // namespace orva
