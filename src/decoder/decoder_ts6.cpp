// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder_ts6.h"

#include <cstdio>
#include <sstream>

#include "common/cloud_types.h"
#include "common/console.h"

namespace tevoro::lidar {
namespace {

constexpr uint32_t kBlocksPerTime = 256;

}  // namespace

template <typename PC>
typename GridDecoder<PC, TS6Model>::PointTimes TS6Impl<PC>::TimesOfPacket(size_t start, double now) {
  typename GridDecoder<PC, TS6Model>::PointTimes times{running_time_, now};
  if (start >= this->kBlocks) return times;
  const size_t blocks = this->kBlocks - start;
  const size_t left = kBlocksPerTime - block_counter_;
  times.change = start + left;
  block_counter_ += static_cast<uint32_t>(blocks);
  if (blocks >= left) {
    block_counter_ -= kBlocksPerTime;
    running_time_ = now;
  }
  return times;
}

template <typename PC>
bool TS6Impl<PC>::DecodeMsopPacket(const uint8_t* data, size_t /*len*/, uint16_t start) {
  if (data == nullptr) return false;
  const double now = this->owner_->GetTimeUTCWithUs(UTCBlock::Read(data + TS6Model::Tail::kUtc));
  if (running_time_ == 0.0) running_time_ = now;
  if (frame_time_ == 0.0) frame_time_ = now;
  const bool ended = this->DecodeBlocks(data, start, TimesOfPacket(start, now));
  if (this->CloseFrame(data, ended, frame_time_)) {
    running_time_ = 0.0;
    frame_time_ = 0.0;
  }
  PublishImu(data, now);
  return ended;
}

template <typename PC>
void TS6Impl<PC>::PublishImu(const uint8_t* data, double now) {
  const uint32_t stamp = TS6Model::Tail::ImuStamp::Read(data);
  if (last_imu_stamp_ != 0 && last_imu_stamp_ == stamp) return;
  last_imu_stamp_ = stamp;
  if (!this->owner_->imu_cb_ || !this->owner_->imu_msg_) return;
  FillImuMsg(IMUBlock::Read(data + TS6Model::Tail::kImu), TS6Model::kImuRateScale, now,
             *this->owner_->imu_msg_);
  this->owner_->imu_cb_();
}

template <typename PC>
void TS6Impl<PC>::Print() const {
  std::ostringstream line;
  for (size_t i = 0; i < CALIB_TABLE_ENTRIES; ++i) {
    line << float{this->check_param_.elevation[i]} << ' ';
    if (i != 0 && i % 16 == 0) {
      PrintLine(line.str());
      line.str("");
    }
  }
  std::fputs(line.str().c_str(), stdout);
}

#define ORVA_INSTANTIATE(PC) template class TS6Impl<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
