// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

#include "decoder/frame_marker.h"
#include "decoder/model_decoder.h"
#include "decoder/projection.h"

namespace tevoro::lidar {

/// NV2: a packet is one line of the scan, 192 measurements at fixed azimuths. A frame ends when the line
/// number falls.
template <typename PC>
class NV2Impl {
 public:
  using PointType = typename PC::PointType;
  static constexpr DecoderConstParam kConst = kLinePacketConstants;

  /// Wire layout of the packet.
  using Line = Field<24, 1>;
  static constexpr size_t kFirstMeasurement = 28;
  static constexpr size_t kMeasurementStride = 6;
  using Measurement = Field<0, 4>;
  static uint32_t Intensity(uint32_t measurement) { return measurement & 0xFFF; }
  static int32_t DistanceCode(uint32_t measurement) { return static_cast<int32_t>(measurement >> 16); }
  static constexpr size_t kImu = 1197;
  static constexpr size_t kUtc = 1210;
  static constexpr double kImuRateScale = 2.0345e-05;  ///< half turns per second and count

  explicit NV2Impl(Decoder<PC>* owner);

  /// The frame test of the grid models; nothing asks it here.
  static bool IsNewFrame(const uint16_t& line, const uint16_t& column) { return IsFrameEnd(line, column); }

  bool DecodeMsopPacket(const uint8_t* data, size_t len, uint16_t start);
  void EnableFinallyFrame() { owner_->split_cb_(kConst.LASER_NUM, 0.0); }
  /// Shares the line test's state with decoding: a frame end is reported once, to whoever sees it first.
  bool SplitFrame(const uint8_t* data, size_t len, uint16_t& seq);
  void UpdateCheckParam(const CheckParam*) {}

 private:
  static constexpr size_t kBlocks = kConst.BLOCKS_PER_PKT;

  /// Elevation of a line, prepared.
  struct Elevation {
    float cosine;
    float sine;          ///< of the inverted angle: line 0 is the top line
    uint32_t in_limits;  ///< mask
  };

  bool LineFell(uint8_t line);
  void AppendLine(const uint8_t* data, size_t start, double now);
  void PublishImu(const uint8_t* data, double now);

  Decoder<PC>* const owner_;
  IMUBlock last_imu_;
  bool started_ = false;
  uint8_t previous_line_ = 0;
  float cos_azimuth_[kBlocks];
  float sin_azimuth_[kBlocks];
  uint32_t azimuth_in_limits_[kBlocks];  ///< masks
  std::array<Elevation, 256> elevations_;
};

template <typename PC>
class DecoderNV2 : public ModelDecoder<PC, NV2Impl<PC>> {
 public:
  using ModelDecoder<PC, NV2Impl<PC>>::ModelDecoder;
};

}  // namespace tevoro::lidar
