// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "decoder/decoder_factory.h"
#include "input/input_pcap.h"
#include "recording_file.h"

namespace orva::bench {

/// What the replay thread does for each record of the index pass; the number of records for us.
inline size_t IndexRecording(const std::string& path) {
  InputParam param;
  param.msop_port = kPort;
  param.pcap_path = path;
  tevoro::lidar::InputPcap input(param);
  if (!input.Init()) return 0;
  const auto decoder = tevoro::lidar::DecoderFactory<PointCloud<Point>>::CreateDecoder(TS4B, {});
  tevoro::lidar::PacketView packet;
  size_t records = 0;
  long position = 0;
  uint16_t seq = 0;
  for (int length; (length = input.NextPacket(packet, &position, true)) >= 0;) {
    if (length == 0) continue;
    ++records;
    decoder->toSplite(packet.data, packet.length, seq);
  }
  return records;
}

}  // namespace orva::bench
