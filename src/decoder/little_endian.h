// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace tevoro::lidar {

/// An unsigned little-endian field of a packet: `Size` bytes at `Offset` from the start of its block or
/// packet. Read byte by byte, so it needs no alignment; the compiler makes a plain load of it.
template <size_t Offset, size_t Size>
struct Field {
  static_assert(Size >= 1 && Size <= 4);
  static constexpr size_t kOffset = Offset;
  static constexpr size_t kEnd = Offset + Size;

  static uint32_t Read(const uint8_t* base) {
    // Spelled out: compilers see one load in this, but not in a loop.
    const uint8_t* at = base + Offset;
    uint32_t value = at[0];
    if constexpr (Size > 1) value |= uint32_t{at[1]} << 8;
    if constexpr (Size > 2) value |= uint32_t{at[2]} << 16;
    if constexpr (Size > 3) value |= uint32_t{at[3]} << 24;
    return value;
  }
};

/// The same for a signed 16-bit field.
template <size_t Offset>
struct SignedField {
  static int16_t Read(const uint8_t* base) {
    return static_cast<int16_t>(static_cast<uint16_t>(Field<Offset, 2>::Read(base)));
  }
};

}  // namespace tevoro::lidar
