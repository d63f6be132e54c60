// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder_nv2.h"

#include <limits>

#include "common/cloud_types.h"
#include "decoder/angles.h"

namespace tevoro::lidar {

template <typename PC>
NV2Impl<PC>::NV2Impl(Decoder<PC>* owner) : ModelImpl<PC, NV2Model>(owner) {
  input_.cos_azimuth = cos_azimuth_;
  input_.sin_azimuth = sin_azimuth_;
  input_.placement = owner->GetPlacement();
  const TrigTable& trig = TrigTable::Get();
  for (size_t k = 0; k < kBlocks; ++k) {
    const int32_t azimuth = TruncateToAngle(6000 - static_cast<int>(k) * 62.5);
    const bool in_limits = AzimuthInLimits(owner->Param(), azimuth);
    cos_azimuth_[k] = in_limits ? trig.Cos(azimuth) : std::numeric_limits<float>::quiet_NaN();
    sin_azimuth_[k] = trig.Sin(azimuth);
  }
  for (size_t line = 0; line < elevations_.size(); ++line) {
    const int32_t elevation = TruncateToAngle(static_cast<int>(line) * 53.5714286 - 1500.0);
    elevations_[line] = {trig.Cos(-elevation), trig.Sin(-elevation),
                         ElevationInLimits(owner->Param(), elevation)};
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
  const double now = this->owner_->GetTimeUTCWithUs(UTCBlock::Read(data + NV2Model::kUtc));
  bool ended = false;
  bool cut = false;
  if (start < kBlocks) {
    ended = LineFell(static_cast<uint8_t>(NV2Model::Line::Read(data)));
    if (this->owner_->point_cloud_) {
      AppendLine(data, start, now);
      cut = bound_.Exceeded(kBlocks - start, ended);
    }
  }
  if ((ended || cut) && this->owner_->split_cb_) this->owner_->split_cb_(NV2Model::kConst.LASER_NUM, now);
  PublishImu(data, now);
  return ended;
}

template <typename PC>
void NV2Impl<PC>::AppendLine(const uint8_t* data, size_t start, double now) {
  const Elevation& elevation = elevations_[NV2Model::Line::Read(data)];
  input_.packet = data;
  input_.cos_elevation = elevation.cosine;
  input_.sin_elevation = elevation.sine;
  input_.placement.max_distance =
      elevation.in_limits ? this->owner_->Param().max_distance : std::numeric_limits<float>::quiet_NaN();
  appender_.Append(*this->owner_->point_cloud_, start, [&](auto* points) {
    loops_.nv2(input_, {points, sizeof(*points)});
    if constexpr (requires { points->timestamp; }) {
      for (size_t k = 0; k < kBlocks; ++k) points[k].timestamp = now;
    }
  });
}

template <typename PC>
void NV2Impl<PC>::PublishImu(const uint8_t* data, double now) {
  const IMUBlock imu = IMUBlock::Read(data + NV2Model::kImu);
  if (this->owner_->IsImuSame(imu, last_imu_)) return;
  last_imu_ = imu;
  if (!this->owner_->imu_cb_ || !this->owner_->imu_msg_) return;
  FillImuMsg(imu, NV2Model::kImuRateScale, now, *this->owner_->imu_msg_);
  this->owner_->imu_cb_();
}

template <typename PC>
bool NV2Impl<PC>::SplitFrame(const uint8_t* data, size_t /*len*/, uint16_t& seq) {
  if (data == nullptr || !LineFell(static_cast<uint8_t>(NV2Model::Line::Read(data)))) return false;
  seq = 1;
  return true;
}

#define ORVA_INSTANTIATE(PC) template class NV2Impl<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
