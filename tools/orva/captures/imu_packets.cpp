// SPDX-License-Identifier: Apache-2.0
#include "captures/imu_packets.h"

#include <algorithm>

#include "decoder/decoder_nv2.h"
#include "decoder/decoder_ts6.h"

namespace orva {
namespace {

using tevoro::lidar::DecoderConstParam;
using tevoro::lidar::FillImuMsg;
using tevoro::lidar::IMUBlock;
using tevoro::lidar::TS6Model;
using tevoro::lidar::UTCBlock;
using Nv2 = tevoro::lidar::NV2Model;

bool IsOf(const DecoderConstParam& model, const std::uint8_t* packet, std::size_t length) {
  return length == model.MSOP_LEN && std::equal(model.MSOP_ID, model.MSOP_ID + model.MSOP_ID_LEN, packet);
}

}  // namespace

std::optional<ImuMsg> ImuPackets::Read(const std::uint8_t* packet, std::size_t length) {
  if (model_ == TS6 && IsOf(TS6Model::kConst, packet, length)) {
    return ReadTs6(packet);
  }
  if (model_ == NV2 && IsOf(Nv2::kConst, packet, length)) {
    return ReadNv2(packet);
  }
  return std::nullopt;
}

std::optional<ImuMsg> ImuPackets::ReadTs6(const std::uint8_t* packet) {
  const std::uint32_t stamp = TS6Model::Tail::ImuStamp::Read(packet);
  if (last_stamp_ != 0 && stamp == last_stamp_) {
    return std::nullopt;
  }
  last_stamp_ = stamp;
  ImuMsg sample;
  FillImuMsg(IMUBlock::Read(packet + TS6Model::Tail::kImu), TS6Model::kImuRateScale,
             clock_.Seconds(UTCBlock::Read(packet + TS6Model::Tail::kUtc)), sample);
  return sample;
}

std::optional<ImuMsg> ImuPackets::ReadNv2(const std::uint8_t* packet) {
  const IMUBlock imu = IMUBlock::Read(packet + Nv2::kImu);
  if (imu == last_imu_) {
    return std::nullopt;
  }
  last_imu_ = imu;
  ImuMsg sample;
  FillImuMsg(imu, Nv2::kImuRateScale, clock_.Seconds(UTCBlock::Read(packet + Nv2::kUtc)), sample);
  return sample;
}

}  // namespace orva
