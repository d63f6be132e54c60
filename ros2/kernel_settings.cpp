// SPDX-License-Identifier: Apache-2.0
#include "kernel_settings.h"

#include <fstream>

namespace orva::ros2 {
namespace {

struct Setting {
  const char* name;
  const char* path;
  long wanted;  ///< at least
  const char* why;
};

constexpr Setting kSettings[] = {
    // A frame is some 540 KB that arrives in one burst.
    {"net.core.rmem_max", "/proc/sys/net/core/rmem_max", 4'194'304,
     "receive buffers hold too little of a cloud"},
    // Messages that are set larger than a network packet are put together again by the kernel.
    {"net.ipv4.ipfrag_high_thresh", "/proc/sys/net/ipv4/ipfrag_high_thresh", 4'194'304,
     "fragments of clouds are thrown away before they are whole"},
};

}  // namespace

std::vector<std::string> KernelAdvice() {
  std::vector<std::string> advice;
  for (const Setting& setting : kSettings) {
    long value = 0;
    if (std::ifstream(setting.path) >> value; value == 0 || value >= setting.wanted) continue;
    advice.push_back(std::string(setting.name) + " is " + std::to_string(value) + ": " + setting.why +
                     ". 'sysctl -w " + setting.name + "=" + std::to_string(setting.wanted) +
                     "' here and on every machine that receives.");
  }
  return advice;
}

}  // namespace orva::ros2
