// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tevoro::lidar {

/// Room for the longest packet of any model, with a margin: a longer datagram is cut, then refused by length.
inline constexpr uint64_t PACKET_BUFFER_SIZE = 1546;

/// A packet where it lies; valid as long as whoever gave it says.
struct PacketView {
  const uint8_t* data = nullptr;
  size_t length = 0;    ///< bytes
  double received = 0;  ///< when it arrived or was captured, seconds since the epoch
};

/// One datagram. Held by shared pointer, so that it can wait in a queue while no thread touches it.
struct Buffer {
  explicit Buffer(uint64_t bytes = PACKET_BUFFER_SIZE)
      : data(std::make_unique<uint8_t[]>(bytes)), capacity(bytes) {}

  std::unique_ptr<uint8_t[]> data;
  uint64_t capacity;    ///< bytes of `data`
  uint64_t offset = 0;  ///< where the packet starts
  uint64_t length = 0;  ///< bytes of the packet, from `offset`
  double received = 0;  ///< when it arrived, seconds since the epoch; live: only for a packet callback

  PacketView View() const { return {data.get() + offset, length, received}; }
};

}  // namespace tevoro::lidar
