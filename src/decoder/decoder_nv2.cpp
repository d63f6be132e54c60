// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder_nv2.h"

#include "common/cloud_types.h"

namespace tevoro::lidar {

template <typename PC>
NV2Impl<PC>::NV2Impl(Decoder<PC>* owner) : owner_(owner) {
  const TrigTable& trig = TrigTable::Get();
  for (size_t k = 0; k < kBlocks; ++k) {
    const int32_t azimuth = TruncateToAngle(6000 - static_cast<int>(k) * 62.5);
    cos_azimuth_[k] = trig.Cos(azimuth);
    sin_azimuth_[k] = trig.Sin(azimuth);
    azimuth_in_limits_[k] = Mask(AzimuthInLimits(owner->Param(), azimuth));
  }
  for (size_t line = 0; line < elevations_.size(); ++line) {
    const int32_t elevation = TruncateToAngle(static_cast<int>(line) * 53.5714286 - 1500.0);
    elevations_[line] = {trig.Cos(-elevation), trig.Sin(-elevation),
                         Mask(ElevationInLimits(owner->Param(), elevation))};
  }
}

template <typename PC>
bool NV2Impl<PC>::LineFell(uint8_t line) {
  const bool fell = started_ && line < previous_line_;
  started_ = true;
  previous_line_ = line;
  return fell;
}

template <typename PC>
bool NV2Impl<PC>::DecodeMsopPacket(const uint8_t* data, size_t /*len*/, uint16_t start) {
  const double now = owner_->GetTimeUTCWithUs(UTCBlock::Read(data + kUtc));
  bool ended = false;
  if (start < kBlocks) {
    ended = LineFell(static_cast<uint8_t>(Line::Read(data)));
    if (owner_->point_cloud_) AppendLine(data, start, now);
  }
  if (ended && owner_->split_cb_) owner_->split_cb_(kConst.LASER_NUM, now);
  PublishImu(data, now);
  return ended;
}

template <typename PC>
void NV2Impl<PC>::AppendLine(const uint8_t* data, size_t start, double now) {
  const auto line = static_cast<uint8_t>(Line::Read(data));
  const Elevation elevation = elevations_[line];
  uint32_t measurement[kBlocks];
  for (size_t k = 0; k < kBlocks; k += kLanes) {
    const FourBlocks<16> four(data + kFirstMeasurement + kMeasurementStride * k, kMeasurementStride);
    StoreLanes(four.Get<Measurement>(), measurement + k);
  }
  float distance[kBlocks];
  for (size_t k = 0; k < kBlocks; ++k) {
    const auto metres = static_cast<float>(DistanceCode(measurement[k]) * 0.009375 - 2.0);
    distance[k] = Select(Mask(metres > 0.0F), metres);
  }
  Coordinates<kBlocks> at;
  at.Project(
      distance,
      [&](size_t k) {
        return Direction{cos_azimuth_[k], sin_azimuth_[k], elevation.cosine, elevation.sine};
      },
      [&](size_t k) { return azimuth_in_limits_[k] & elevation.in_limits; }, owner_->GetMounting(),
      owner_->Param());

  uint32_t echo[kBlocks];
  for (size_t k = 0; k < kBlocks; ++k) echo[k] = Echo(Intensity(measurement[k]), line);
  AppendPoints<kBlocks>(*owner_->point_cloud_, start, [&](PointType* points) {
    SetPoints(at, echo, points, [&](PointType& point, size_t) {
      if constexpr (requires { point.timestamp; }) point.timestamp = now;
    });
  });
}

template <typename PC>
void NV2Impl<PC>::PublishImu(const uint8_t* data, double now) {
  const IMUBlock imu = IMUBlock::Read(data + kImu);
  if (owner_->IsImuSame(imu, last_imu_)) return;
  last_imu_ = imu;
  if (!owner_->imu_cb_ || !owner_->imu_msg_) return;
  FillImuMsg(imu, kImuRateScale, now, *owner_->imu_msg_);
  owner_->imu_cb_();
}

template <typename PC>
bool NV2Impl<PC>::SplitFrame(const uint8_t* data, size_t /*len*/, uint16_t& seq) {
  if (data == nullptr || !LineFell(static_cast<uint8_t>(Line::Read(data)))) return false;
  seq = 1;
  return true;
}

#define ORVA_INSTANTIATE(PC)  \
  template class NV2Impl<PC>; \
  template class DecoderNV2<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
