// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
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
  float near;       ///< metres; 0 disables the filter
  float threshold;  ///< intensity that a very near echo must reach
  float very_near;  ///< metres

  bool Enabled() const { return !(near == 0.0F); }

  /// The distance, or 0 for an echo that is too weak. Only for an enabled filter.
  float operator()(float distance, float intensity) const {
    const bool very_near_echo = very_near > distance;
    const bool near_echo = !very_near_echo & (near > distance);
    const bool weak = very_near_echo & (threshold > intensity);
    const bool faint = near_echo & (std::fabs(distance - near) / near * strength > intensity);
    return weak | faint ? 0.0F : distance;
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

  explicit GridDecoder(Decoder<PC>* owner) : owner_(owner), directions_(kCodes) { PrepareDirections(); }

  static bool IsNewFrame(const uint16_t& line, const uint16_t& column) { return IsFrameEnd(line, column); }

  /// Correction in metres; the second argument is not used.
  double CalibrateDistance(const float& distance, const float&, const float& sum,
                           const float& divisor) const {
    return Correction()(distance, sum / divisor);
  }

  /// Sets `distance` to 0 where the near filter removes the point.
  void FilterNearNoisePoints(float& distance, const uint32_t& intensity) const {
    const NearFilter filter = Filter();
    if (filter.Enabled()) distance = filter(distance, static_cast<float>(intensity));
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
    PrepareDirections();
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
  /// What decoding needs of a grid code, prepared when calibration arrives.
  struct Direction {
    float cos_azimuth;
    float sin_azimuth;
    float cos_elevation;
    float sin_elevation;
    uint32_t in_limits;
  };
  static constexpr size_t kCodes = 0x10000;
  /// More points than this without a frame end, and the frame is cut.
  static constexpr uint32_t kMostPoints = 99999;

  struct Packet : Projection<kBlocks> {
    double time_of_flight[kBlocks];  ///< in sixty-fourths
    float divisor[kBlocks];
    float pulse_sum[kBlocks];
    float filter_intensity[kBlocks];
    uint16_t intensity[kBlocks];
    uint16_t line[kBlocks];
  };

  DistanceCorrection Correction() const {
    const auto& w = check_param_.weight;
    return {{w[0], w[1], w[2], w[3]}};
  }
  NearFilter Filter() const {
    const auto& n = check_param_.near_filter;
    return {n[0], n[1], n[2], n[3]};
  }

  /// Fields have at most 24 bits; machines convert signed integers to floating point far faster.
  static int32_t Signed(uint32_t field) { return static_cast<int32_t>(field); }

  void PrepareDirections();
  bool Unpack(const uint8_t* data, size_t start, Packet& packet) const;
  void ComputeDistances(Packet& packet) const;
  void Append(const Packet& packet, size_t start, const PointTimes& times);

  std::vector<Direction> directions_;
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
    const bool in_limits = AzimuthInLimits(owner_->Param(), angles.azimuth) &&
                           ElevationInLimits(owner_->Param(), angles.elevation);
    directions_[code] = {trig.Cos(angles.azimuth), trig.Sin(angles.azimuth), trig.Cos(angles.elevation),
                         trig.Sin(angles.elevation), in_limits};
  }
}

template <typename PC, typename Model>
bool GridDecoder<PC, Model>::Unpack(const uint8_t* data, size_t start, Packet& packet) const {
  bool ended = false;
  for (size_t k = 0; k < kBlocks; ++k) {
    const uint8_t* block = data + Block::kFirst + Block::kStride * k;
    const uint32_t code = Block::Code::Read(block);
    ended |= code == kFrameEndCode && k >= start;
    const Direction& direction = directions_[code];
    packet.cos_azimuth[k] = direction.cos_azimuth;
    packet.sin_azimuth[k] = direction.sin_azimuth;
    packet.cos_elevation[k] = direction.cos_elevation;
    packet.sin_elevation[k] = direction.sin_elevation;
    packet.keep[k] = direction.in_limits;
    packet.line[k] = static_cast<uint16_t>(code >> 8);
    packet.time_of_flight[k] = Signed(Block::TimeOfFlight::Read(block));
    packet.divisor[k] = static_cast<float>(Signed(Block::PulseDivisor::Read(block)));
    packet.pulse_sum[k] = static_cast<float>(Signed(Block::PulseSum::Read(block)));
    packet.filter_intensity[k] = static_cast<float>(Signed(Block::FilterIntensity::Read(block)));
    packet.intensity[k] = static_cast<uint16_t>(Block::Intensity::Read(block));
  }
  return ended;
}

template <typename PC, typename Model>
void GridDecoder<PC, Model>::ComputeDistances(Packet& packet) const {
  // The count is in sixty-fourths of a unit. A power of two scales without rounding, so the division may
  // be folded into the factor.
  constexpr double kUnitsPerCount = 1.645 / 64.0;
  constexpr double kOffset = 2.09;
  const DistanceCorrection correction = Correction();
  for (size_t i = 0; i < kBlocks; ++i) {
    const auto raw =
        static_cast<float>((packet.time_of_flight[i] * kUnitsPerCount - kOffset) * Model::kMetresPerUnit);
    const float ratio = packet.pulse_sum[i] / packet.divisor[i];
    packet.distance[i] = static_cast<float>(double{raw} - correction(raw, ratio));
    if constexpr (Model::kRejectsNonPositiveRaw) packet.keep[i] &= raw > 0.0F;
  }
  const NearFilter filter = Filter();
  if (!filter.Enabled()) return;
  for (size_t i = 0; i < kBlocks; ++i) {
    packet.distance[i] = filter(packet.distance[i], packet.filter_intensity[i]);
  }
}

template <typename PC, typename Model>
void GridDecoder<PC, Model>::Append(const Packet& packet, size_t start, const PointTimes& times) {
  PointType points[kBlocks];
  for (size_t i = start; i < kBlocks; ++i) {
    PointType& point = points[i];
    point.x = packet.x[i];
    point.y = packet.y[i];
    point.z = packet.z[i];
    point.intensity = packet.intensity[i];
    point.label = packet.line[i];
    if constexpr (requires { point.timestamp; }) {
      point.timestamp = i < times.change ? times.before : times.after;
    }
    if constexpr (requires { point.source_distance; } && Model::kReportsSourceDistance) {
      point.source_distance = TruncateToMetres(packet.distance[i]);
    }
  }
  AppendPoints(*owner_->point_cloud_, points + start, points + kBlocks);
  point_count_ += static_cast<uint32_t>(kBlocks - start);
}

template <typename PC, typename Model>
bool GridDecoder<PC, Model>::DecodeBlocks(const uint8_t* data, size_t start, const PointTimes& times) {
  if (start >= kBlocks) return false;
  // All blocks are computed, also those before `start`: loops of a fixed length are faster.
  Packet packet;
  const bool ended = Unpack(data, start, packet);
  if (owner_->point_cloud_) {
    ComputeDistances(packet);
    packet.Run(owner_->GetMounting(), owner_->Param());
    Append(packet, start, times);
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
