// SPDX-License-Identifier: Apache-2.0
//
// Compiled with -mavx2, for x86-64 alone.
#define ORVA_LANES 8
#include "decoder/packet_loops_body.h"

namespace tevoro::lidar {

extern const PacketLoops kAvx2PacketLoops;
const PacketLoops kAvx2PacketLoops = LoopsNamed("avx2");

}  // namespace tevoro::lidar
