// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>

#include "decoder/angles.h"
#include "decoder/append_points.h"
#include "decoder/frame_marker.h"
#include "decoder/little_endian.h"
#include "decoder/model_decoder.h"
#include "decoder/packet_loops.h"
#include "param/check_param.h"

namespace tevoro::lidar {

/// Azimuth and elevation in hundredths of a degree.
struct GridAngles {
  int32_t azimuth = 0;
  int32_t elevation = 0;
};

/// The near filter of a unit's calibration. A near distance of 0 disables it.
inline NearFilter NearFilterOf(const CheckParam& param) {
  constexpr float kNever = -std::numeric_limits<float>::infinity();
  const bool enabled = param.near_filter[1] != 0.0F;
  return {.strength = param.near_filter[0],
          .near = enabled ? param.near_filter[1] : kNever,
          .threshold = param.near_filter[2],
          .very_near = enabled ? param.near_filter[3] : kNever};
}

/// What the models with a calibrated grid of lines and columns share. `Model` is a description: wire layout
/// (`Block`, `Tail`), constants and the few differences, see decoder_ts4b.h.
template <typename PC, typename Model>
class GridDecoder : public ModelImpl<PC, Model> {
 public:
  using PointType = typename PC::PointType;
  using Block = typename Model::Block;
  static constexpr size_t kBlocks = Block::kCount;

  explicit GridDecoder(Decoder<PC>* owner) : ModelImpl<PC, Model>(owner) {}

  // The rules of a single measurement. Nothing calls these four: decoding takes whole packets
  // (packet_loops_body.h).
  static bool IsNewFrame(const uint16_t& line, const uint16_t& column) { return IsFrameEnd(line, column); }

  /// Correction in metres; the second argument is not used.
  double CalibrateDistance(const float& distance, const float&, const float& sum,
                           const float& divisor) const {
    float weight[4];
    std::memcpy(weight, check_param_.weight, sizeof(weight));
    const float ratio = sum / divisor;
    const float square = ratio * ratio * weight[2];
    const float linear = ratio * weight[0];
    const float scale = distance * weight[1];
    return double{square} + 0.0 + double{linear} + double{scale} + double{weight[3]};
  }

  /// Sets `distance` to 0 where the near filter removes the point.
  void FilterNearNoisePoints(float& distance, const uint32_t& intensity) const {
    const NearFilter filter = NearFilterOf(check_param_);
    const auto brightness = static_cast<float>(intensity);
    const bool weak =
        filter.very_near > distance
            ? filter.threshold > brightness
            : filter.near > distance &&
                  std::fabs(distance - filter.near) / filter.near * filter.strength > brightness;
    if (weak) distance = 0.0F;
  }

  /// Confidence of a measurement, for diagnosis.
  bool IsConfident(const Block& block) const {
    const uint32_t product = Block::ConfidenceA::Read(block.bytes) * Block::ConfidenceB::Read(block.bytes);
    const auto x = static_cast<float>(static_cast<int32_t>(product) * 0.009765625);
    const auto value = static_cast<float>(Block::ConfidenceValue::Read(block.bytes));
    return std::sqrt(x) * check_param_.near_filter[6] + check_param_.near_filter[7] >= value - x;
  }

  /// Calibrated angles; untouched for a code outside the calibrated grid.
  void GetAzimuthElevation(const uint8_t& line, const uint8_t& column, int32_t& azimuth,
                           int32_t& elevation) const {
    const size_t code = static_cast<size_t>(line) << 8 | column;
    if (code >= CALIB_TABLE_ENTRIES) return;
    azimuth = TruncateToAngle(-100.0F * check_param_.azimuth[code]);
    elevation = TruncateToAngle(100.0F * check_param_.elevation[code]);
  }

  bool SplitFrame(const uint8_t* data, size_t /*len*/, uint16_t& seq) const {
    return FindFrameEnd(data, Block::kFirst, Block::kStride, kBlocks, seq);
  }

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

  CheckParam check_param_;

 private:
  static constexpr size_t kCodes = 0x10000;
  /// More points than this without a frame end, and the frame is cut.
  static constexpr uint32_t kMostPoints = 99999;

  void Prepare();
  /// True when any block ends the frame, also one before `start`: all are decoded, a loop of a fixed length
  /// is faster.
  bool AppendPacket(const uint8_t* data, size_t start, const PointTimes& times);

  // Prepared for the first packet under a calibration: half a millisecond.
  struct alignas(kCacheLine) Directions {
    float cos_azimuth[kCodes];
    float sin_azimuth[kCodes];
    float cos_elevation[kCodes];
    float sin_elevation[kCodes];
  };
  const std::unique_ptr<Directions> directions_ = std::make_unique<Directions>();
  GridLoopInput input_{};
  bool prepared_ = false;

  const PacketLoops& loops_ = ChoosePacketLoops();
  PointAppender<PC, kBlocks> appender_;
  uint32_t point_count_ = 0;  ///< in the frame so far
};

template <typename PC, typename Model>
void GridDecoder<PC, Model>::Prepare() {
  const TrigTable& trig = TrigTable::Get();
  Directions& to = *directions_;
  for (size_t code = 0; code < kCodes; ++code) {
    const auto line = static_cast<uint8_t>(code >> 8);
    const auto column = static_cast<uint8_t>(code & 0xFF);
    GridAngles angles = Model::AnglesOffGrid(line, column);
    GetAzimuthElevation(line, column, angles.azimuth, angles.elevation);
    const bool in_limits = AzimuthInLimits(this->owner_->Param(), angles.azimuth) &&
                           ElevationInLimits(this->owner_->Param(), angles.elevation);
    to.cos_azimuth[code] = trig.Cos(angles.azimuth);
    to.sin_azimuth[code] = trig.Sin(angles.azimuth);
    to.cos_elevation[code] = in_limits ? trig.Cos(angles.elevation) : std::numeric_limits<float>::quiet_NaN();
    to.sin_elevation[code] = trig.Sin(angles.elevation);
  }
  input_.directions = {to.cos_azimuth, to.sin_azimuth, to.cos_elevation, to.sin_elevation};
  std::memcpy(input_.distance.weight, check_param_.weight, sizeof(check_param_.weight));
  input_.distance.filter = NearFilterOf(check_param_);
  input_.placement = this->owner_->GetPlacement();
  prepared_ = true;
}

template <typename PC, typename Model>
bool GridDecoder<PC, Model>::AppendPacket(const uint8_t* data, size_t start, const PointTimes& times) {
  if (!prepared_) Prepare();
  input_.packet = data;
  bool ended = false;
  appender_.Append(*this->owner_->point_cloud_, start, [&](PointType* points) {
    float distance[kBlocks];
    ended = (loops_.*Model::kLoop)(input_, {points, sizeof(PointType)}, distance);
    for (size_t i = 0; i < kBlocks; ++i) {
      if constexpr (requires { points->timestamp; }) {
        points[i].timestamp = i < times.change ? times.before : times.after;
      }
      if constexpr (requires { points->source_distance; } && Model::kReportsSourceDistance) {
        points[i].source_distance = TruncateToMetres(distance[i]);
      }
    }
  });
  point_count_ += static_cast<uint32_t>(kBlocks - start);
  return ended;
}

template <typename PC, typename Model>
bool GridDecoder<PC, Model>::DecodeBlocks(const uint8_t* data, size_t start, const PointTimes& times) {
  if (start >= kBlocks) return false;
  if (this->owner_->point_cloud_) {
    const bool ended = AppendPacket(data, start, times);
    if (!ended || start == 0) return ended;
  }
  uint16_t after = 0;
  return FindFrameEnd(data, Block::kFirst + Block::kStride * start, Block::kStride,
                      static_cast<uint16_t>(kBlocks - start), after);
}

template <typename PC, typename Model>
bool GridDecoder<PC, Model>::CloseFrame(const uint8_t* data, bool ended, double frame_time) {
  const bool overrun = point_count_ > kMostPoints;
  if (!ended && !overrun) return false;
  if (ended && !overrun && !this->owner_->split_cb_) return false;
  if (ended && this->owner_->split_cb_ && this->owner_->point_cloud_) {
    using Tail = typename Model::Tail;
    PC& cloud = *this->owner_->point_cloud_;
    const auto celsius = [](uint32_t raw) { return raw * 0.0625 - 64.0; };
    cloud.status_word = static_cast<uint16_t>(Tail::StatusWord::Read(data));
    cloud.temperature_a = celsius(Tail::TemperatureA::Read(data));
    cloud.temperature_b = celsius(Tail::TemperatureB::Read(data));
    cloud.status_byte = static_cast<uint8_t>(Tail::StatusByte::Read(data));
  }
  this->owner_->split_cb_(Model::kConst.LASER_NUM, frame_time);
  point_count_ = 0;
  return true;
}

}  // namespace tevoro::lidar
