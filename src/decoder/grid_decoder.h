// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "decoder/decoder.h"
#include "decoder/frame_marker.h"
#include "decoder/little_endian.h"
#include "decoder/projection.h"
#include "param/check_param.h"

namespace tevoro::lidar {

/// Azimuth and elevation in hundredths of a degree.
struct GridAngles {
  int32_t azimuth = 0;
  int32_t elevation = 0;
};

/// Distance correction of the unit, from its calibration.
struct DistanceCorrection {
  float weight[4];  ///< of pulse ratio, raw distance, pulse ratio squared; constant term

  explicit DistanceCorrection(const CheckParam& param) { std::memcpy(weight, param.weight, sizeof(weight)); }

  /// Metres to subtract from the raw `distance`. Products are float, the sum double, in this order.
  double operator()(float distance, float ratio) const {
    const float square = ratio * ratio * weight[2];
    const float linear = ratio * weight[0];
    const float scale = distance * weight[1];
    return double{square} + 0.0 + double{linear} + double{scale} + double{weight[3]};
  }
};

/// Removes weak echoes close to the sensor, where dust and the window scatter.
struct NearFilter {
  float strength;
  float near;       ///< metres
  float threshold;  ///< intensity that a very near echo must reach
  float very_near;  ///< metres

  /// From a unit's calibration. A near distance of 0 disables the filter: nothing is then near.
  explicit NearFilter(const CheckParam& param) {
    constexpr float kNever = -std::numeric_limits<float>::infinity();
    const bool enabled = param.near_filter[1] != 0.0F;
    strength = param.near_filter[0];
    near = enabled ? param.near_filter[1] : kNever;
    threshold = param.near_filter[2];
    very_near = enabled ? param.near_filter[3] : kNever;
  }

  /// The distance, or 0 for an echo that is too weak.
  float operator()(float distance, float intensity) const {
    const bool very_near_echo = very_near > distance;
    const bool near_echo = !very_near_echo & (near > distance);
    const bool weak = very_near_echo & (threshold > intensity);
    const bool faint = near_echo & (std::fabs(distance - near) / near * strength > intensity);
    return Select(~Mask(weak | faint), distance);
  }
};

/// What the models with a calibrated grid of lines and columns share. `Model` is a description: wire layout
/// (`Block`, `Tail`), constants and the few differences, see decoder_ts4b.h.
template <typename PC, typename Model>
class GridDecoder {
 public:
  using PointType = typename PC::PointType;
  using Block = typename Model::Block;
  static constexpr const DecoderConstParam& kConst = Model::kConst;
  static constexpr size_t kBlocks = Model::kConst.BLOCKS_PER_PKT;

  explicit GridDecoder(Decoder<PC>* owner) : owner_(owner), directions_(kCodes), in_limits_(kCodes) {}

  static bool IsNewFrame(const uint16_t& line, const uint16_t& column) { return IsFrameEnd(line, column); }

  /// Correction in metres; the second argument is not used.
  double CalibrateDistance(const float& distance, const float&, const float& sum,
                           const float& divisor) const {
    return DistanceCorrection(check_param_)(distance, sum / divisor);
  }

  /// Sets `distance` to 0 where the near filter removes the point.
  void FilterNearNoisePoints(float& distance, const uint32_t& intensity) const {
    distance = NearFilter(check_param_)(distance, static_cast<float>(intensity));
  }

  /// Calibrated angles; untouched for a code outside the calibrated grid.
  void GetAzimuthElevation(const uint8_t& line, const uint8_t& column, int32_t& azimuth,
                           int32_t& elevation) const {
    const size_t code = static_cast<size_t>(line) << 8 | column;
    if (code >= CALIB_TABLE_ENTRIES) return;
    azimuth = TruncateToAngle(-100.0F * check_param_.azimuth[code]);
    elevation = TruncateToAngle(100.0F * check_param_.elevation[code]);
  }

  /// Confidence of a measurement, for diagnosis; decoding does not ask.
  bool IsConfident(const Block& block) const {
    const uint32_t product = Block::ConfidenceA::Read(block.bytes) * Block::ConfidenceB::Read(block.bytes);
    const auto x = static_cast<float>(static_cast<int32_t>(product) * 0.009765625);
    const auto value = static_cast<float>(Block::ConfidenceValue::Read(block.bytes));
    return std::sqrt(x) * check_param_.near_filter[6] + check_param_.near_filter[7] >= value - x;
  }

  bool SplitFrame(const uint8_t* data, size_t /*len*/, uint16_t& seq) const {
    return FindFrameEnd(data, Block::kFirst, Block::kStride, kBlocks, seq);
  }

  void EnableFinallyFrame() { owner_->split_cb_(kConst.LASER_NUM, 0.0); }

  void UpdateCheckParam(const CheckParam* param) {
    std::memcpy(&check_param_, param, sizeof(check_param_));
    prepared_ = false;
  }

 protected:
  /// The time of the points: `before` up to the block number `change`, `after` from there on.
  struct PointTimes {
    double before = 0.0;
    double after = 0.0;
    size_t change = kBlocks;
  };

  /// Decodes the blocks from `start` on into the current cloud. True when one of them ends the frame; the
  /// blocks behind it still belong to the same frame.
  bool DecodeBlocks(const uint8_t* data, size_t start, const PointTimes& times);

  /// Closes the frame where the packet ended it, or where it has overrun without a marker. True when the
  /// frame was closed.
  bool CloseFrame(const uint8_t* data, bool ended, double frame_time);

  Decoder<PC>* const owner_;
  CheckParam check_param_;

 private:
  static constexpr size_t kCodes = 0x10000;
  static constexpr bool kOwnPulseSum = !std::is_same_v<typename Block::PulseSum, typename Block::Intensity>;
  static constexpr bool kOwnFilterIntensity =
      !std::is_same_v<typename Block::FilterIntensity, typename Block::Intensity>;
  /// More points than this without a frame end, and the frame is cut.
  static constexpr uint32_t kMostPoints = 99999;

  /// A packet's measurements on their way to points. Fields have at most 24 bits, and machines convert
  /// signed integers to floating point faster than unsigned ones.
  struct Packet {
    uint32_t code[kBlocks];
    int32_t time_of_flight[kBlocks];  ///< in sixty-fourths of a unit
    int32_t divisor[kBlocks];
    int32_t intensity[kBlocks];
    int32_t pulse_sum[kBlocks];         ///< only where it is a field of its own
    int32_t filter_intensity[kBlocks];  ///< likewise
    float distance[kBlocks];            ///< metres; NaN rejects the point
    Coordinates<kBlocks> at;
    // Room for what `directions` and `in_limits` point to when the codes are scattered.
    Direction scattered_direction[kBlocks];
    int8_t scattered_in_limits[kBlocks];
    const Direction* directions;
    const int8_t* in_limits;  ///< masks
  };

  void PrepareDirections();
  bool Unpack(const uint8_t* data, size_t start, Packet& packet) const;
  void ComputeDistances(Packet& packet) const;
  void Append(const Packet& packet, size_t start, const PointTimes& times);

  // By grid code, prepared for the first packet under a calibration: half a millisecond.
  std::vector<Direction> directions_;
  std::vector<int8_t> in_limits_;  ///< masks
  bool prepared_ = false;
  Packet packet_{};           ///< scratch
  uint32_t point_count_ = 0;  ///< in the frame so far
};

template <typename PC, typename Model>
void GridDecoder<PC, Model>::PrepareDirections() {
  const TrigTable& trig = TrigTable::Get();
  for (size_t code = 0; code < kCodes; ++code) {
    const auto line = static_cast<uint8_t>(code >> 8);
    const auto column = static_cast<uint8_t>(code & 0xFF);
    GridAngles angles = Model::AnglesOffGrid(line, column);
    GetAzimuthElevation(line, column, angles.azimuth, angles.elevation);
    directions_[code] = {trig.Cos(angles.azimuth), trig.Sin(angles.azimuth), trig.Cos(angles.elevation),
                         trig.Sin(angles.elevation)};
    const bool in_limits = AzimuthInLimits(owner_->Param(), angles.azimuth) &&
                           ElevationInLimits(owner_->Param(), angles.elevation);
    in_limits_[code] = in_limits ? -1 : 0;
  }
  prepared_ = true;
}

template <typename PC, typename Model>
bool GridDecoder<PC, Model>::Unpack(const uint8_t* data, size_t start, Packet& packet) const {
  static_assert(kBlocks % kLanes == 0);
  for (size_t k = 0; k < kBlocks; k += kLanes) {
    const FourBlocks<Block::kBytesRead> blocks(data + Block::kFirst + Block::kStride * k, Block::kStride);
    StoreLanes(blocks.template Get<typename Block::Code>(), packet.code + k);
    StoreLanes(blocks.template Get<typename Block::TimeOfFlight>(), packet.time_of_flight + k);
    StoreLanes(blocks.template Get<typename Block::PulseDivisor>(), packet.divisor + k);
    StoreLanes(blocks.template Get<typename Block::Intensity>(), packet.intensity + k);
    if constexpr (kOwnPulseSum) {
      StoreLanes(blocks.template Get<typename Block::PulseSum>(), packet.pulse_sum + k);
    }
    if constexpr (kOwnFilterIntensity) {
      StoreLanes(blocks.template Get<typename Block::FilterIntensity>(), packet.filter_intensity + k);
    }
  }
  const uint32_t first_code = packet.code[0];
  uint32_t ended = 0;
  uint32_t scattered = 0;
  for (uint32_t k = 0; k < kBlocks; ++k) {
    ended |= Mask(packet.code[k] == kFrameEndCode) & Mask(k >= start);
    scattered |= packet.code[k] ^ (first_code + k);
  }
  // A sensor scans column by column, so most packets hold a run of codes, whose directions stand side by
  // side in the table.
  packet.directions = directions_.data() + first_code;
  packet.in_limits = in_limits_.data() + first_code;
  if (scattered != 0) {
    for (size_t k = 0; k < kBlocks; ++k) {
      packet.scattered_direction[k] = directions_[packet.code[k]];
      packet.scattered_in_limits[k] = in_limits_[packet.code[k]];
    }
    packet.directions = packet.scattered_direction;
    packet.in_limits = packet.scattered_in_limits;
  }
  return ended != 0;
}

template <typename PC, typename Model>
void GridDecoder<PC, Model>::ComputeDistances(Packet& packet) const {
  // The count is in sixty-fourths of a unit. A power of two scales without rounding, so the division may
  // be folded into the factor.
  constexpr double kUnitsPerCount = 1.645 / 64.0;
  constexpr double kOffset = 2.09;
  const DistanceCorrection correction(check_param_);
  const NearFilter filter(check_param_);
  const auto& pulse_sum = kOwnPulseSum ? packet.pulse_sum : packet.intensity;
  const auto& filter_intensity = kOwnFilterIntensity ? packet.filter_intensity : packet.intensity;
  for (size_t i = 0; i < kBlocks; ++i) {
    const auto raw =
        static_cast<float>((packet.time_of_flight[i] * kUnitsPerCount - kOffset) * Model::kMetresPerUnit);
    const float ratio = static_cast<float>(pulse_sum[i]) / static_cast<float>(packet.divisor[i]);
    const auto corrected = static_cast<float>(double{raw} - correction(raw, ratio));
    float distance = filter(corrected, static_cast<float>(filter_intensity[i]));
    if constexpr (Model::kRejectsNonPositiveRaw) distance = NanUnless(Mask(raw > 0.0F), distance);
    packet.distance[i] = distance;
  }
}

template <typename PC, typename Model>
void GridDecoder<PC, Model>::Append(const Packet& packet, size_t start, const PointTimes& times) {
  uint32_t echo[kBlocks];
  for (size_t i = 0; i < kBlocks; ++i) {
    echo[i] = Echo(static_cast<uint32_t>(packet.intensity[i]), packet.code[i] >> 8);
  }
  AppendPoints<kBlocks>(*owner_->point_cloud_, start, [&](PointType* points) {
    SetPoints(packet.at, echo, points);
    for (size_t i = 0; i < kBlocks; ++i) {
      if constexpr (requires { points->timestamp; }) {
        points[i].timestamp = i < times.change ? times.before : times.after;
      }
      if constexpr (requires { points->source_distance; } && Model::kReportsSourceDistance) {
        points[i].source_distance = TruncateToMetres(packet.distance[i]);
      }
    }
  });
  point_count_ += static_cast<uint32_t>(kBlocks - start);
}

template <typename PC, typename Model>
bool GridDecoder<PC, Model>::DecodeBlocks(const uint8_t* data, size_t start, const PointTimes& times) {
  if (start >= kBlocks) return false;
  if (!prepared_) PrepareDirections();
  // All blocks are computed, also those before `start`: loops of a fixed length are faster.
  const bool ended = Unpack(data, start, packet_);
  if (owner_->point_cloud_) {
    ComputeDistances(packet_);
    packet_.at.Project(
        packet_.distance,
        [directions = packet_.directions](size_t i) -> const Direction& { return directions[i]; },
        [in_limits = packet_.in_limits](size_t i) { return static_cast<uint32_t>(in_limits[i]); },
        owner_->GetMounting(), owner_->Param());
    Append(packet_, start, times);
  }
  return ended;
}

template <typename PC, typename Model>
bool GridDecoder<PC, Model>::CloseFrame(const uint8_t* data, bool ended, double frame_time) {
  const bool overrun = point_count_ > kMostPoints;
  if (!ended && !overrun) return false;
  if (ended && !overrun && !owner_->split_cb_) return false;
  if (ended && owner_->split_cb_ && owner_->point_cloud_) {
    using Tail = typename Model::Tail;
    PC& cloud = *owner_->point_cloud_;
    const auto celsius = [](uint32_t raw) { return raw * 0.0625 - 64.0; };
    cloud.status_word = static_cast<uint16_t>(Tail::StatusWord::Read(data));
    cloud.temperature_a = celsius(Tail::TemperatureA::Read(data));
    cloud.temperature_b = celsius(Tail::TemperatureB::Read(data));
    cloud.status_byte = static_cast<uint8_t>(Tail::StatusByte::Read(data));
  }
  owner_->split_cb_(kConst.LASER_NUM, frame_time);
  point_count_ = 0;
  return true;
}

}  // namespace tevoro::lidar
