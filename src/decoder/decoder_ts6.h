// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "decoder/grid_decoder.h"

namespace tevoro::lidar {

/// One measurement in a TS6 packet; the first opens at byte 25.
struct OrvaTS6MsopBlock {
  static constexpr size_t kFirst = 25;
  static constexpr size_t kStride = 16;
  static constexpr size_t kCount = 64;

  using Code = Field<0, 2>;  ///< grid code: column, line
  using PulseDivisor = Field<2, 2>;
  using TimeOfFlight = Field<6, 3>;  ///< upper 18 bits whole units, lower 6 bits sixty-fourths
  using FilterIntensity = Field<9, 3>;
  using Intensity = Field<12, 3>;
  using PulseSum = Intensity;
  using ConfidenceA = PulseDivisor;
  using ConfidenceB = Field<4, 2>;
  using ConfidenceValue = Intensity;

  const uint8_t* bytes;
};

/// TS6: 192 lines x 128 columns, 64 measurements in a packet, with clock and IMU.
struct TS6Model {
  using Block = OrvaTS6MsopBlock;
  static constexpr auto kLoop = &PacketLoops::ts6;
  struct Tail {
    using StatusWord = Field<1059, 2>;
    using TemperatureA = Field<1061, 2>;
    using TemperatureB = Field<1063, 2>;
    static constexpr size_t kImu = 1065;
    using StatusByte = Field<1077, 1>;
    static constexpr size_t kUtc = 1078;
    using ImuStamp = Field<1092, 3>;
  };

  static constexpr DecoderConstParam kConst = ModelConstants(1104, 192, Block::kCount);
  static constexpr double kMetresPerUnit = 0.149896229;
  static constexpr bool kRejectsNonPositiveRaw = true;
  static constexpr bool kReportsSourceDistance = false;
  static constexpr double kImuRateScale = 0.000173611;  ///< half turns per second and count: 0.03125 degrees

  static GridAngles AnglesOffGrid(uint8_t /*line*/, uint8_t /*column*/) { return {}; }
};

template <typename PC>
class TS6Impl : public GridDecoder<PC, TS6Model> {
 public:
  using GridDecoder<PC, TS6Model>::GridDecoder;
  bool DecodeMsopPacket(const uint8_t* data, size_t len, uint16_t start);
  bool SplitFrame(const uint8_t* data, size_t len, uint16_t& seq) const {
    return data != nullptr && GridDecoder<PC, TS6Model>::SplitFrame(data, len, seq);
  }
  /// Dumps the elevation table to standard output, for diagnosis.
  void Print() const;

 private:
  typename GridDecoder<PC, TS6Model>::PointTimes TimesOfPacket(size_t start, double now);
  void PublishImu(const uint8_t* data, double now);

  uint32_t last_imu_stamp_ = 0;  ///< 0: none yet
  double running_time_ = 0.0;    ///< of the points, renewed every 256 blocks; 0: not set
  double frame_time_ = 0.0;      ///< of the frame's first packet; 0: not set
  uint32_t block_counter_ = 0;   ///< blocks since the running time was renewed
};

template <typename PC>
using DecoderTS6 = ModelDecoder<PC, TS6Impl<PC>>;

}  // namespace tevoro::lidar
