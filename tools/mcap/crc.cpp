// SPDX-License-Identifier: Apache-2.0
#include "mcap/crc.h"

#include <array>

namespace orva::mcap {
namespace {

constexpr std::uint32_t kPolynomial = 0xEDB88320;  ///< of CRC-32, bit-reversed

/// Row k: the effect of a byte that k zero bytes follow. Sixteen bytes are looked up at once.
constexpr auto kCrcTables = [] {
  std::array<std::array<std::uint32_t, 256>, 16> tables = {};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ ((crc & 1) != 0 ? kPolynomial : 0);
    }
    tables[0][byte] = crc;
  }
  for (std::size_t row = 1; row < tables.size(); ++row) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[row - 1][byte];
      tables[row][byte] = (before >> 8) ^ tables[0][before & 0xFF];
    }
  }
  return tables;
}();

constexpr std::size_t kCrcStep = kCrcTables.size();

inline std::uint32_t CrcStep(const std::uint8_t* at, std::uint32_t crc) {
  std::uint32_t next = 0;
  for (std::size_t i = 0; i < kCrcStep; i += 4) {
    const std::uint32_t four = (std::uint32_t{at[i]} | std::uint32_t{at[i + 1]} << 8 |
                                std::uint32_t{at[i + 2]} << 16 | std::uint32_t{at[i + 3]} << 24) ^
                               (i == 0 ? crc : 0);
    const auto* table = &kCrcTables[kCrcStep - 4 - i];
    next ^= table[3][four & 0xFF] ^ table[2][(four >> 8) & 0xFF] ^ table[1][(four >> 16) & 0xFF] ^
            table[0][four >> 24];
  }
  return next;
}

/// a * b modulo the CRC's polynomial.
std::uint32_t MultiplyModulo(std::uint32_t a, std::uint32_t b) {
  std::uint32_t product = 0;
  for (std::uint32_t bit = 0x80000000; bit != 0; bit >>= 1) {
    if ((a & bit) != 0) {
      product ^= b;
    }
    b = (b >> 1) ^ ((b & 1) != 0 ? kPolynomial : 0);
  }
  return product;
}

}  // namespace

std::uint32_t JoinCrc(std::uint32_t first, std::uint32_t second, std::uint64_t second_size) {
  std::uint32_t shift = 0x80000000;  // x^0
  std::uint32_t power = 0x00800000;  // x^8, one byte; squared for each bit of the size
  for (; second_size != 0; second_size >>= 1) {
    if ((second_size & 1) != 0) {
      shift = MultiplyModulo(shift, power);
    }
    power = MultiplyModulo(power, power);
  }
  return MultiplyModulo(shift, first) ^ second;
}

std::uint32_t Crc32(Bytes bytes, std::uint32_t crc) {
  // Each step waits for the one before it, so a long run goes as two halves side by side.
  constexpr std::size_t kWorthHalving = 8192;
  crc = ~crc;
  if (bytes.size() >= kWorthHalving) {
    const std::size_t half = bytes.size() / 2 / kCrcStep * kCrcStep;
    std::uint32_t second = ~std::uint32_t{0};
    for (std::size_t i = 0; i < half; i += kCrcStep) {
      crc = CrcStep(&bytes[i], crc);
      second = CrcStep(&bytes[half + i], second);
    }
    crc = ~JoinCrc(~crc, ~second, half);
    bytes = bytes.subspan(2 * half);
  }
  for (; bytes.size() >= kCrcStep; bytes = bytes.subspan(kCrcStep)) {
    crc = CrcStep(bytes.data(), crc);
  }
  for (const std::uint8_t byte : bytes) {
    crc = (crc >> 8) ^ kCrcTables[0][(crc ^ byte) & 0xFF];
  }
  return ~crc;
}

}  // namespace orva::mcap
