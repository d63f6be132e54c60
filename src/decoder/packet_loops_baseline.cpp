// SPDX-License-Identifier: Apache-2.0
//
// What every machine of the architecture has: SSE2 on x86-64, NEON on arm64.
#define ORVA_LANES 4
#include "decoder/packet_loops_body.h"

namespace tevoro::lidar {

extern const PacketLoops kBaselinePacketLoops;
const PacketLoops kBaselinePacketLoops = LoopsNamed("baseline");

}  // namespace tevoro::lidar
