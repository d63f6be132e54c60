// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_PACKET_BATCH_H_
#define ORVA_TOOLS_CAPTURES_PACKET_BATCH_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orva {

/// Packets one behind the other, in memory that is used again.
struct PacketBatch {
  struct Packet {
    std::size_t length;
    std::int64_t time_ns;
  };
  std::vector<std::uint8_t> bytes;
  std::vector<Packet> packets;

  /// Throws std::bad_alloc, and is then as before.
  void Add(const std::uint8_t* data, std::size_t length, std::int64_t time_ns) {
    packets.push_back({length, time_ns});
    try {
      bytes.insert(bytes.end(), data, data + length);
    } catch (...) {
      packets.pop_back();
      throw;
    }
  }
  void Clear() {
    bytes.clear();
    packets.clear();
  }
  /// Of memory: a flood of datagrams of one byte fills it too.
  std::size_t Size() const { return bytes.size() + packets.size() * sizeof(Packet); }
};

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_PACKET_BATCH_H_
