// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "decoder/grid_decoder.h"

namespace tevoro::lidar {

/// One measurement in a TS4B packet. The first opens at byte 25; the packet starts with its identifier.
struct OrvaTS4BMsopBlock {
  static constexpr size_t kFirst = 25;
  static constexpr size_t kStride = 40;
  static constexpr size_t kCount = 32;

  using Code = Field<0, 2>;  ///< grid code: column, line
  using PulseDivisor = Field<2, 2>;
  using TimeOfFlight = Field<9, 3>;  ///< upper 18 bits whole units, lower 6 bits sixty-fourths
  using Intensity = Field<12, 3>;
  using FilterIntensity = Intensity;
  using PulseSum = Field<18, 3>;
  // The confidence test has its own view of the block.
  using ConfidenceA = Field<3, 2>;
  using ConfidenceB = Field<5, 2>;
  using ConfidenceValue = Field<22, 4>;

  const uint8_t* bytes;
};

/// TS4B: 192 lines x 128 columns, 32 measurements in a packet.
struct TS4BModel {
  using Block = OrvaTS4BMsopBlock;
  static constexpr auto kLoop = &PacketLoops::ts4b;
  struct Tail {
    using StatusWord = Field<1315, 2>;
    using TemperatureA = Field<1317, 2>;
    using TemperatureB = Field<1319, 2>;
    using StatusByte = Field<1333, 1>;
  };

  static constexpr DecoderConstParam kConst = ModelConstants(1360, 192, Block::kCount);
  static constexpr double kMetresPerUnit = 0.15;
  static constexpr bool kRejectsNonPositiveRaw = false;
  static constexpr bool kReportsSourceDistance = true;

  /// Lines above the calibrated grid lie on a nominal raster.
  static GridAngles AnglesOffGrid(uint8_t line, uint8_t column) {
    return {TruncateToAngle(6000 - column * 47.05882353), TruncateToAngle(4500 - line * 47.120419)};
  }
};

template <typename PC>
class TS4BImpl : public GridDecoder<PC, TS4BModel> {
 public:
  using GridDecoder<PC, TS4BModel>::GridDecoder;
  bool DecodeMsopPacket(const uint8_t* data, size_t len, uint16_t start);
};

template <typename PC>
using DecoderTS4B = ModelDecoder<PC, TS4BImpl<PC>>;

}  // namespace tevoro::lidar
