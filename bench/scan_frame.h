// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "support/packets.h"

namespace orva::bench {

/// One frame in the order of a real scan, lines from top to bottom, within one second of the sensor's clock.
inline std::vector<test::Packet> ScanFrame(LidarType model) {
  test::Random random(7);
  std::vector<test::Packet> frame;
  const size_t measurements = model == NV2 ? 56 * 192 : 192 * 128;
  size_t done = 0;
  while (done < measurements) {
    test::Packet packet = test::PlausiblePacket(random, model);
    if (packet.layout().utc != 0) packet.Utc(static_cast<unsigned>(frame.size()), 2024, 5, 17, 10, 20, 30);
    if (model == NV2) packet.Line(static_cast<unsigned>(done / 192));
    for (size_t k = 0; k < packet.layout().blocks; ++k, ++done) {
      if (model != NV2) packet.Code(k, static_cast<unsigned>(done / 128), static_cast<unsigned>(done % 128));
    }
    frame.push_back(packet);
  }
  return frame;
}

}  // namespace orva::bench
