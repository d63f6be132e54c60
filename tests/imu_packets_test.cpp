// SPDX-License-Identifier: Apache-2.0
#include "captures/imu_packets.h"

#include "support/decoder_rig.h"

namespace orva::test {
namespace {

TEST(ImuPackets, GivesTheSamplesThatTheDriverDelivers) {
  for (const LidarType model : {TS6, NV2, TS4B}) {
    Random random(7);
    DecoderRig<PointCloud<Point>> rig(model, OpenLimits());
    ImuPackets packets(model);
    std::vector<ImuMsg> got;
    for (int i = 0; i < 300; ++i) {
      Packet packet = PlausiblePacket(random, model);
      if (model == TS6) packet.Stamp(Pick(random, 0, 3));  // 0 is a sample each time, others once in a row
      if (model == NV2) packet.Imu({1, 2, 3, 4, 5, static_cast<int>(Pick(random, 0, 2))});
      rig.decoder->ProcessMsopPacket(packet.data(), packet.size(), 0);
      if (const auto sample = packets.Read(packet.data(), packet.size())) got.push_back(*sample);
      EXPECT_FALSE(packets.Read(packet.data(), packet.size() - 1)) << "cut";
      packet.data()[0] ^= 1;
      EXPECT_FALSE(packets.Read(packet.data(), packet.size())) << "not the model's";
    }
    EXPECT_EQ(got.empty(), model == TS4B);
    ASSERT_EQ(got.size(), rig.imu.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_TRUE(SameImu(got[i], rig.imu[i])) << i;
  }
}

}  // namespace
}  // namespace orva::test
