// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

#include "decoder/append_points.h"
#include "decoder/frame_bound.h"
#include "decoder/frame_marker.h"
#include "decoder/model_decoder.h"
#include "decoder/packet_loops.h"

namespace tevoro::lidar {

/// NV2: 56 lines; a packet is one line of the scan, 192 measurements at fixed azimuths, with clock and IMU.
struct NV2Model {
  static constexpr DecoderConstParam kConst = kLinePacketConstants;
  static constexpr size_t kBlocks = kConst.BLOCKS_PER_PKT;

  using Line = Field<24, 1>;
  static constexpr size_t kFirstMeasurement = 28;
  static constexpr size_t kMeasurementStride = 6;  ///< intensity in 12 bits, distance code in 16, 16 unused
  static constexpr size_t kImu = 1197;
  static constexpr size_t kUtc = 1210;

  static constexpr double kMetresPerCode = 0.009375;
  static constexpr double kOffset = 2.0;               ///< metres
  static constexpr double kImuRateScale = 2.0345e-05;  ///< half turns per second and count
};

/// A frame ends when the line number falls; one that goes on and on is cut.
template <typename PC>
class NV2Impl : public ModelImpl<PC, NV2Model> {
 public:
  explicit NV2Impl(Decoder<PC>* owner);

  /// The frame test of the grid models. Unreached: nothing asks it here.
  static bool IsNewFrame(const uint16_t& line, const uint16_t& column) { return IsFrameEnd(line, column); }

  bool DecodeMsopPacket(const uint8_t* data, size_t len, uint16_t start);
  /// Shares the line test's state with decoding: a frame end is reported once, to whoever sees it first.
  bool SplitFrame(const uint8_t* data, size_t len, uint16_t& seq);

 private:
  static constexpr size_t kBlocks = NV2Model::kBlocks;

  /// Elevation of a line, prepared.
  struct Elevation {
    float cosine;
    float sine;  ///< of the inverted angle: line 0 is the top line
    bool in_limits;
  };

  bool LineFell(uint8_t line);
  void AppendLine(const uint8_t* data, size_t start, double now);
  void PublishImu(const uint8_t* data, double now);

  LineLoopInput input_{};
  const PacketLoops& loops_ = ChoosePacketLoops();
  PointAppender<PC, kBlocks> appender_;
  FrameBound bound_;
  IMUBlock last_imu_;
  bool started_ = false;
  uint8_t previous_line_ = 0;
  alignas(kCacheLine) float cos_azimuth_[kBlocks];  ///< NaN where out of limits
  alignas(kCacheLine) float sin_azimuth_[kBlocks];
  std::array<Elevation, 256> elevations_;
};

template <typename PC>
using DecoderNV2 = ModelDecoder<PC, NV2Impl<PC>>;

}  // namespace tevoro::lidar
