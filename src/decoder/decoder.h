// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "common/counter.h"
#include "decoder/mounting.h"
#include "decoder/packet_blocks.h"
#include "decoder/packet_loops.h"
#include "orva_driver.h"
#include "param/check_param.h"

namespace tevoro::lidar {

/// Constants of a model.
struct DecoderConstParam {
  uint16_t MSOP_LEN;        ///< the only accepted packet length, bytes
  uint8_t MSOP_ID_LEN;      ///< identifier bytes that are compared
  uint8_t MSOP_ID[8];       ///< opens every packet
  uint16_t LASER_NUM;       ///< laser lines
  uint16_t BLOCKS_PER_PKT;  ///< data blocks in a packet
  // The sensor's own figures, for the record: limits come from DecoderParam.
  float DISTANCE_MIN;     ///< metres
  float DISTANCE_MAX;     ///< metres
  float DISTANCE_RES;     ///< metres
  float TEMPERATURE_RES;  ///< degrees Celsius
};

/// The record of a model: what differs is an argument, the rest is common to the family.
consteval DecoderConstParam ModelConstants(uint16_t length, uint16_t lines, uint16_t blocks) {
  return {.MSOP_LEN = length,
          .MSOP_ID_LEN = 8,
          .MSOP_ID = {0xEE, 0xFF, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
          .LASER_NUM = lines,
          .BLOCKS_PER_PKT = blocks,
          .DISTANCE_MIN = 0.4F,
          .DISTANCE_MAX = 230.0F,
          .DISTANCE_RES = 0.005F,
          .TEMPERATURE_RES = 0.0625F};
}

/// The record of NV2. KR7 and TS4, which decode nothing, accept their packets by the same.
inline constexpr DecoderConstParam kLinePacketConstants = ModelConstants(1236, 56, 192);

/// What became of the packets that were given to one operation of a decoder.
struct PacketCounts {
  Counter accepted;
  Counter wrong_length;
  Counter wrong_identifier;
};

/// Base of the model decoders: acceptance of packets, limits, mounting, packet time. Used by one thread at a
/// time. Calling order: construct, register, UpdateCheckParam when calibration is there, set the current
/// cloud, then a packet after the other.
template <typename PC>
class Decoder {
 public:
  Decoder(const DecoderConstParam& const_param, const DecoderParam& param)
      : mounting_(param), param_(param), const_param_(const_param) {}
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  virtual ~Decoder() = default;

  /// Decodes the blocks from `start` of an accepted packet. True when the packet ended a frame.
  virtual bool DecodeMsopPacket(const uint8_t* data, size_t len, uint16_t start) = 0;
  /// Delivers the frame in the making as it is.
  virtual void EnableFinallyFrame() = 0;
  /// Looks for a frame end without decoding: true, and in `seq` the block after it.
  virtual bool SplitFrame(const uint8_t* data, size_t len, uint16_t& seq) = 0;
  /// Copies what it needs of the record.
  virtual void UpdateCheckParam(CheckParam* param) = 0;

  /// Checks a packet and decodes it. A packet that is refused is dropped: false, a console line, and an
  /// Error to the handler, at most one of a kind in two seconds.
  bool ProcessMsopPacket(const uint8_t* data, size_t len, uint16_t start);
  /// Checks a packet and looks for a frame end in it; refuses as ProcessMsopPacket does, but prints nothing.
  bool toSplite(const uint8_t* data, size_t len, uint16_t& seq);

  void RegisterCallBack(const std::function<void(const Error&)>& error_cb,
                        const std::function<void(const uint16_t&, const double&)>& split_cb) {
    error_cb_ = error_cb;
    split_cb_ = split_cb;
  }
  void RegisterIMUCallBack(const std::function<void()>& imu_cb) { imu_cb_ = imu_cb; }

  void TransformPoint(float& x, float& y, float& z) const { mounting_.Apply(x, y, z); }
  bool IsAngleRange(const float& azimuth, const float& elevation) const {
    return param_.min_azimuth <= azimuth && azimuth <= param_.max_azimuth &&
           param_.min_elevation <= elevation && elevation <= param_.max_elevation;
  }
  bool IsDistanceRange(const float& distance) const {
    return param_.min_distance <= distance && distance <= param_.max_distance;
  }
  bool IsImuSame(const IMUBlock& a, const IMUBlock& b) const { return a == b; }
  double GetTimeUTCWithUs(const UTCBlock& utc) { return clock_.Seconds(utc); }

  const DecoderParam& Param() const { return param_; }
  const DecoderConstParam& ConstParam() const { return const_param_; }
  Placement GetPlacement() const;
  const PacketCounts& ProcessedPackets() const { return processed_; }  ///< by ProcessMsopPacket; any thread
  const PacketCounts& ExaminedPackets() const { return examined_; }    ///< by toSplite; any thread

  std::shared_ptr<PC> point_cloud_;  ///< frame in the making; null: points are computed, not stored
  std::shared_ptr<ImuMsg> imu_msg_;  ///< filled before `imu_cb_` is called
  std::function<void(const Error&)> error_cb_;
  std::function<void(const uint16_t&, const double&)> split_cb_;  ///< laser lines, frame time in seconds
  std::function<void()> imu_cb_;

 private:
  struct Throttle;
  enum class Refusal { kNone, kLength, kIdentifier };

  Refusal Check(const uint8_t* data, size_t len, PacketCounts& counts) const;
  void Report(Refusal refusal, Throttle& throttle);

  Mounting mounting_;
  DecoderParam param_;
  DecoderConstParam const_param_;
  UtcClock clock_;
  PacketCounts processed_;
  PacketCounts examined_;
};

}  // namespace tevoro::lidar
