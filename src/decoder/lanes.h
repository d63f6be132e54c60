// SPDX-License-Identifier: Apache-2.0
//
// Four 32-bit values side by side, in the compiler's own portable vectors: one register on x86-64 and arm64.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tevoro::lidar {

using Lanes = uint32_t __attribute__((vector_size(16)));
inline constexpr size_t kLanes = 4;

inline Lanes LoadLanes(const void* values) {
  Lanes lanes;
  std::memcpy(&lanes, values, sizeof(lanes));
  return lanes;
}

inline void StoreLanes(Lanes lanes, void* values) {
  std::memcpy(values, &lanes, sizeof(lanes));
}

/// Four rows become four columns.
inline void Transpose(Lanes (&rows)[kLanes]) {
  const Lanes low01 = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
  const Lanes high01 = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
  const Lanes low23 = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
  const Lanes high23 = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
  rows[0] = __builtin_shufflevector(low01, low23, 0, 1, 4, 5);
  rows[1] = __builtin_shufflevector(low01, low23, 2, 3, 6, 7);
  rows[2] = __builtin_shufflevector(high01, high23, 0, 1, 4, 5);
  rows[3] = __builtin_shufflevector(high01, high23, 2, 3, 6, 7);
}

/// Four blocks of a packet, read together: a Field of all four at once. `Bytes`: how much of each block is
/// read, a multiple of 16.
template <size_t Bytes>
class FourBlocks {
 public:
  static_assert(Bytes % sizeof(Lanes) == 0);
  static_assert(std::endian::native == std::endian::little, "fields are cut out of words as they are loaded");

  FourBlocks(const uint8_t* first, size_t stride) {
    for (size_t part = 0; part < Bytes / sizeof(Lanes); ++part) {
      for (size_t k = 0; k < kLanes; ++k)
        words_[part][k] = LoadLanes(first + stride * k + sizeof(Lanes) * part);
      Transpose(words_[part]);
    }
  }

  /// The field `F` of the four blocks, as Field::Read gives it for one.
  template <typename F>
  Lanes Get() const {
    static_assert(F::kEnd <= Bytes);
    constexpr size_t kShift = F::kOffset % 4 * 8;
    constexpr size_t kBits = (F::kEnd - F::kOffset) * 8;
    Lanes value = Word<F::kOffset / 4>() >> kShift;
    if constexpr (kShift + kBits > 32) value |= Word<F::kOffset / 4 + 1>() << (32 - kShift);
    if constexpr (kBits < 32) value &= (1U << kBits) - 1;
    return value;
  }

 private:
  template <size_t Index>
  Lanes Word() const {
    return words_[Index / kLanes][Index % kLanes];
  }

  Lanes words_[Bytes / sizeof(Lanes)][kLanes];  ///< word by word, the four blocks side by side
};

}  // namespace tevoro::lidar
