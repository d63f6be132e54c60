// SPDX-License-Identifier: Apache-2.0
#include "decoder/packet_loops.h"

#include <cstdlib>
#include <string_view>

namespace tevoro::lidar {

extern const PacketLoops kBaselinePacketLoops;
#if defined(__x86_64__)
extern const PacketLoops kAvx2PacketLoops;
#endif

namespace {

const PacketLoops& Choose() {
  const char* const asked = std::getenv("ORVA_ISA");
  if (asked != nullptr && std::string_view(asked) == "baseline") return kBaselinePacketLoops;
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2")) return kAvx2PacketLoops;
    // Unreached: only by machines without AVX2, or where ORVA_ISA says so
#endif
  return kBaselinePacketLoops;
}

}  // namespace

const PacketLoops& ChoosePacketLoops() {
  static const PacketLoops& chosen = Choose();
  return chosen;
}

}  // namespace tevoro::lidar
