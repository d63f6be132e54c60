// SPDX-License-Identifier: Apache-2.0
//
// Packets of every model, built field by field or at random.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "orva_driver.h"

namespace orva::test {

/// Where a model keeps its fields; 0 where it has none. Block fields are those of block 0.
struct WireLayout {
  LidarType model;
  const char* name;
  size_t length;
  uint16_t blocks;
  size_t stride;
  size_t column, divisor, flight, filter_intensity, intensity, pulse_sum;
  size_t tail, status, imu, utc, stamp;
};

inline constexpr WireLayout WIRE_LAYOUTS[] = {
    {KR7, "KR7", 1236, 192, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {NV2, "NV2", 1236, 192, 6, 0, 0, 30, 0, 28, 0, 0, 0, 1197, 1210, 0},
    {TS4A, "TS4A", 1360, 32, 25, 25, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {TS4B, "TS4B", 1360, 32, 40, 25, 27, 34, 0, 37, 43, 1315, 1333, 0, 0, 0},
    {TS4, "TS4", 1236, 192, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {TS6, "TS6", 1104, 64, 16, 25, 27, 31, 34, 37, 0, 1059, 1077, 1065, 1078, 1092},
};

inline const WireLayout& LayoutOf(LidarType model) {
  return *std::find_if(std::begin(WIRE_LAYOUTS), std::end(WIRE_LAYOUTS),
                       [model](const WireLayout& layout) { return layout.model == model; });
}

class Packet {
 public:
  explicit Packet(LidarType model) : layout_(LayoutOf(model)), bytes_(layout_.length) {
    constexpr uint8_t kIdentifier[] = {0xEE, 0xFF, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    std::copy(std::begin(kIdentifier), std::end(kIdentifier), bytes_.begin());
  }

  Packet& Put(size_t offset, uint64_t value, size_t count) {
    for (size_t i = 0; i < count; ++i) bytes_[offset + i] = static_cast<uint8_t>(value >> (8 * i));
    return *this;
  }

  // Block fields of the grid models.
  Packet& Code(size_t block, unsigned line, unsigned column) {
    return Put(At(block, layout_.column), column + 256U * line, 2);
  }
  Packet& FrameEnd(size_t block) { return Code(block, 191, 127); }
  Packet& Flight(size_t block, double units) {
    return Put(At(block, layout_.flight), static_cast<uint64_t>(units * 64), 3);
  }
  Packet& Intensity(size_t block, unsigned value) { return Put(At(block, layout_.intensity), value, 3); }
  Packet& FilterIntensity(size_t block, unsigned value) {
    return Put(At(block, layout_.filter_intensity), value, 3);
  }
  /// TS4B's pulse sum and divisor. TS6 has no sum of its own, its ratio takes the intensity.
  Packet& Pulse(size_t block, unsigned sum, unsigned divisor) {
    if (layout_.pulse_sum != 0) Put(At(block, layout_.pulse_sum), sum, 3);
    return Put(At(block, layout_.divisor), divisor, 2);
  }

  // NV2 and KR7.
  Packet& Line(unsigned line) { return Put(24, line, 1); }
  Packet& Measure(size_t k, unsigned intensity, unsigned distance_code) {
    return Put(At(k, layout_.intensity), intensity, 2).Put(At(k, layout_.flight), distance_code, 2);
  }
  Packet& FrameCounter(unsigned counter) { return Put(26, counter, 2); }

  // Packet fields.
  Packet& Tail(unsigned status_word, unsigned temperature_a, unsigned temperature_b, unsigned status_byte) {
    return Put(layout_.tail, status_word, 2)
        .Put(layout_.tail + 2, temperature_a, 2)
        .Put(layout_.tail + 4, temperature_b, 2)
        .Put(layout_.status, status_byte, 1);
  }
  Packet& Utc(unsigned microseconds, unsigned year, unsigned month, unsigned day, unsigned hour,
              unsigned minute, unsigned second) {
    const size_t at = layout_.utc;
    Put(at, microseconds, 3).Put(at + 3, year, 2).Put(at + 5, month, 1).Put(at + 6, day, 1);
    return Put(at + 7, hour, 1).Put(at + 8, minute, 1).Put(at + 9, second, 1);
  }
  /// Three accelerations, three angular rates, in the order of the packet.
  Packet& Imu(const std::array<int, 6>& counts) {
    for (size_t i = 0; i < 6; ++i) Put(layout_.imu + 2 * i, static_cast<uint64_t>(counts[i]), 2);
    return *this;
  }
  Packet& Stamp(unsigned stamp) { return Put(layout_.stamp, stamp, 3); }

  const uint8_t* data() const { return bytes_.data(); }
  uint8_t* data() { return bytes_.data(); }
  size_t size() const { return bytes_.size(); }
  const std::vector<uint8_t>& bytes() const { return bytes_; }
  const WireLayout& layout() const { return layout_; }

 private:
  size_t At(size_t block, size_t field) const { return field + layout_.stride * block; }

  const WireLayout& layout_;
  std::vector<uint8_t> bytes_;
};

/// Lets every finite point pass.
inline DecoderParam OpenLimits() {
  return {0.0F, 1000.0F, -180.0F, 180.0F, -90.0F, 90.0F, false, 0, 0, 0, 0, 0, 0};
}

using Random = std::mt19937;

inline unsigned Pick(Random& random, unsigned first, unsigned last) {
  return first + static_cast<unsigned>(random() % (last - first + 1ULL));
}

/// Right length and identifier, everything else noise.
inline Packet NoisePacket(Random& random, LidarType model) {
  Packet packet(model);
  for (size_t i = 8; i < packet.size(); ++i) packet.data()[i] = static_cast<uint8_t>(random());
  return packet;
}

/// What a sensor could send: codes on the grid, distances up to some 250 m, a sound time and IMU sample.
inline Packet PlausiblePacket(Random& random, LidarType model) {
  Packet packet(model);
  const WireLayout& layout = packet.layout();
  if (model == NV2) {
    packet.Line(Pick(random, 0, 55));
    for (size_t k = 0; k < layout.blocks; ++k) {
      packet.Measure(k, Pick(random, 0, 0xFFFF), Pick(random, 0, 28000));
    }
  } else if (layout.column != 0) {
    for (size_t k = 0; k < layout.blocks; ++k) packet.Code(k, Pick(random, 0, 190), Pick(random, 0, 127));
  } else {
    packet.FrameCounter(Pick(random, 0, 50));
  }
  if (layout.divisor != 0) {
    for (size_t k = 0; k < layout.blocks; ++k) {
      const unsigned divisor = Pick(random, 0, 400);
      packet.Flight(k, Pick(random, 0, 1000) + Pick(random, 0, 63) / 64.0).Pulse(k, divisor * 3, divisor);
      packet.Intensity(k, Pick(random, 0, 2000));
      if (layout.filter_intensity != 0) packet.FilterIntensity(k, Pick(random, 0, 300));
    }
    packet.Tail(Pick(random, 0, 0xFFFF), Pick(random, 0, 4000), Pick(random, 0, 4000), Pick(random, 0, 255));
  }
  if (layout.utc != 0) {
    packet.Utc(Pick(random, 0, 999999), Pick(random, 1970, 2099), Pick(random, 1, 12), Pick(random, 1, 31),
               Pick(random, 0, 23), Pick(random, 0, 59), Pick(random, 0, 60));
    packet.Imu({1, -2, 3, -4, 5, static_cast<int>(Pick(random, 0, 1))});
    if (layout.stamp != 0) packet.Stamp(Pick(random, 0, 2));
  }
  return packet;
}

}  // namespace orva::test
