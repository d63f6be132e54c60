// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "decoder/decoder_factory.h"
#include "support/console_capture.h"
#include "support/packets.h"
#include "support/reference_decoder.h"
#include "support/same.h"

namespace orva::test {

/// A cloud of the application's own kind, which keeps its points elsewhere.
template <typename PC>
class DivertingCloud : public PC {
 public:
  void PushPoint(const typename PC::PointType& point) override { diverted.push_back(point); }
  std::vector<typename PC::PointType> diverted;
};

enum class Clouds { kPlain, kDiverting, kSometimesNull };

/// A decoder beside its transcription: both are fed the same packets, and must say the same.
template <typename PC>
class DecoderRig {
 public:
  DecoderRig(LidarType model, const DecoderParam& param, Clouds clouds = Clouds::kPlain) : clouds_(clouds) {
    const ConsoleCapture quiet;
    decoder = tevoro::lidar::DecoderFactory<PC>::CreateDecoder(model, param);
    reference = MakeReference<PC>(model, param);
    decoder->point_cloud_ = MakeCloud(0);
    wanted_cloud_ = MakeWantedCloud(0);
    reference->cloud = wanted_cloud_.get();
    decoder->RegisterCallBack([](const Error&) { ADD_FAILURE() << "packet refused"; },
                              [this](const uint16_t& lines, const double& time) {
                                EXPECT_EQ(lines, decoder->ConstParam().LASER_NUM);
                                frames.push_back({decoder->point_cloud_, time});
                                decoder->point_cloud_ = MakeCloud(frames.size());
                              });
    reference->on_frame = [this](double time) {
      wanted_frames.push_back({wanted_cloud_, time});
      wanted_cloud_ = MakeWantedCloud(wanted_frames.size());
      reference->cloud = wanted_cloud_.get();
    };
    decoder->RegisterIMUCallBack([this] { imu.push_back(*decoder->imu_msg_); });
    reference->on_imu = [this] { wanted_imu.push_back(*reference->imu); };
    OfferImu(true);
  }

  void Calibrate(const CheckParam& calibration) {
    auto copy = std::make_unique<CheckParam>(calibration);
    decoder->UpdateCheckParam(copy.get());
    *copy = CheckParam();  // the decoder must hold its own
    reference->Update(calibration);
  }
  void OfferImu(bool offered) {
    decoder->imu_msg_ = offered ? std::make_shared<ImuMsg>() : nullptr;
    reference->imu = offered ? &wanted_imu_msg_ : nullptr;
  }
  bool Feed(const Packet& packet, uint16_t start = 0) {
    const bool frame_end = decoder->ProcessMsopPacket(packet.data(), packet.size(), start);
    EXPECT_EQ(frame_end, reference->Decode(packet.data(), start));
    return frame_end;
  }
  bool Probe(const Packet& packet, uint16_t& seq) {
    uint16_t wanted_seq = seq;
    const bool found = decoder->toSplite(packet.data(), packet.size(), seq);
    EXPECT_EQ(found, reference->Split(packet.data(), wanted_seq));
    EXPECT_EQ(seq, wanted_seq);
    return found;
  }
  void Finish() {
    decoder->EnableFinallyFrame();
    reference->FinishFrame();
  }

  /// All finished frames, the one in the making, and the IMU samples.
  void Compare() {
    ASSERT_EQ(frames.size(), wanted_frames.size());
    for (size_t i = 0; i <= frames.size(); ++i) {
      SCOPED_TRACE(testing::Message() << "frame " << i);
      const bool last = i == frames.size();
      ASSERT_TRUE(last || Same(frames[i].time, wanted_frames[i].time));
      const auto& got = last ? decoder->point_cloud_ : frames[i].cloud;
      const auto& want = last ? wanted_cloud_ : wanted_frames[i].cloud;
      ASSERT_EQ(got == nullptr, want == nullptr);
      if (got == nullptr) continue;
      if (const auto* diverting = dynamic_cast<DivertingCloud<PC>*>(got.get())) {
        ASSERT_TRUE(got->points.empty());
        got->points = diverting->diverted;
      }
      ASSERT_NO_FATAL_FAILURE(ExpectSameCloud(*got, *want));
    }
    ASSERT_EQ(imu.size(), wanted_imu.size());
    for (size_t i = 0; i < imu.size(); ++i) ASSERT_TRUE(SameImu(imu[i], wanted_imu[i])) << "sample " << i;
  }

  struct Frame {
    std::shared_ptr<PC> cloud;
    double time;
  };
  std::shared_ptr<tevoro::lidar::Decoder<PC>> decoder;
  std::unique_ptr<ReferenceDecoder<PC>> reference;
  std::vector<Frame> frames, wanted_frames;
  std::vector<ImuMsg> imu, wanted_imu;

 private:
  std::shared_ptr<PC> MakeCloud(size_t index) const {
    if (clouds_ == Clouds::kDiverting) return std::make_shared<DivertingCloud<PC>>();
    return MakeWantedCloud(index);
  }
  std::shared_ptr<PC> MakeWantedCloud(size_t index) const {
    if (clouds_ == Clouds::kSometimesNull && index % 2 == 0) return nullptr;
    return std::make_shared<PC>();
  }
  Clouds clouds_;
  std::shared_ptr<PC> wanted_cloud_;
  ImuMsg wanted_imu_msg_;
};

}  // namespace orva::test
