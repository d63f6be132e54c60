// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace orva::sim {

// Little-endian stores, byte by byte.

inline void PutU16(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value);
  at[1] = static_cast<uint8_t>(value >> 8);
}

inline void PutU24(uint8_t* at, uint32_t value) {
  PutU16(at, value);
  at[2] = static_cast<uint8_t>(value >> 16);
}

inline void PutU32(uint8_t* at, uint32_t value) {
  PutU24(at, value);
  at[3] = static_cast<uint8_t>(value >> 24);
}

/// A quantity in units of `resolution` as a signed 16-bit count, at the limits where it does not fit.
inline void PutCount(uint8_t* at, double quantity, double resolution) {
  const double count = std::clamp(std::round(quantity / resolution), -32768.0, 32767.0);
  PutU16(at, static_cast<uint32_t>(static_cast<int32_t>(count)));
}

}  // namespace orva::sim
