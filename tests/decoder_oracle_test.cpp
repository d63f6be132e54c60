// SPDX-License-Identifier: Apache-2.0
//
// Every decoder against its transcription, bit for bit.
#include <limits>

#include "support/calibrations.h"
#include "support/decoder_rig.h"

namespace orva::test {
namespace {

/// Limits and mountings, by name.
std::vector<std::pair<const char*, DecoderParam>> ParamCases() {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  return {{"open", OpenLimits()},
          {"default", DecoderParam()},
          {"unlimited", {-inf, inf, -inf, inf, -inf, inf, false, 0, 0, 0, 0, 0, 0}},
          {"unlimited, mounted",
           {-inf, inf, -inf, inf, -inf, inf, true, 1.5F, -2.25F, 0.3F, 3.0F, -7.5F, 123.4F}},
          {"tight", {3.0F, 80.0F, -45.0F, 30.0F, -10.0F, 12.34F, false, 9, 9, 9, 9, 9, 9}},
          {"tight, mounted", {3.0F, 80.0F, -45.0F, 30.0F, -10.0F, 12.34F, true, 9, 9, 9, 9, 9, 9}},
          {"NaN limit", {0, 1000, -180, nan, -90, 90, false, 0, 0, 0, 0, 0, 0}},
          {"NaN mounting", {0, 1000, -180, 180, -90, 90, true, 0, 0, 0, nan, 0, 0}}};
}

template <typename PC>
class DecoderOracle : public testing::Test {};
using CloudTypes = testing::Types<PointCloud<Point>, PointCloud<PointTime>, PointCloud<PointSource>>;
TYPED_TEST_SUITE(DecoderOracle, CloudTypes);

/// A stretch of a stream: starts, markers, probes, an end of input and calibrations in the midst of it.
template <typename PC>
void RunStream(DecoderRig<PC>& rig, Random& random, LidarType model, bool noise,
               const std::vector<const CheckParam*>& calibrations) {
  const WireLayout& layout = LayoutOf(model);
  for (int i = 0; i < 14; ++i) {
    if (i % 7 == 1 && !calibrations.empty()) {
      rig.Calibrate(*calibrations[static_cast<size_t>(i / 7) % calibrations.size()]);
    }
    if (i == 6) rig.Finish();
    rig.OfferImu(i % 5 != 2);
    Packet packet = noise ? NoisePacket(random, model) : PlausiblePacket(random, model);
    if (layout.column != 0 && i % 3 == 2) packet.FrameEnd(Pick(random, 0, layout.blocks - 1U));
    uint16_t seq = 77;
    if (i % 4 == 3) rig.Probe(packet, seq);
    const unsigned start = i % 2 == 0 ? 0 : Pick(random, 0, layout.blocks + 2U);
    rig.Feed(packet, static_cast<uint16_t>(start));
  }
}

TYPED_TEST(DecoderOracle, AgreesOnEveryStream) {
  Random random(20240611);
  const auto plausible = PlausibleCalibration(random);
  const auto hostile = HostileCalibration(random);
  const std::vector<std::vector<const CheckParam*>> calibrations = {
      {}, {plausible.get()}, {hostile.get(), plausible.get()}};
  for (const WireLayout& layout : WIRE_LAYOUTS) {
    for (const auto& [name, param] : ParamCases()) {
      for (size_t c = 0; c < calibrations.size(); ++c) {
        for (const Clouds clouds : {Clouds::kPlain, Clouds::kDiverting, Clouds::kSometimesNull}) {
          const bool noise = random() % 2 == 0;
          SCOPED_TRACE(testing::Message() << layout.name << ", " << name << ", calibration " << c
                                          << ", clouds " << static_cast<int>(clouds) << ", noise " << noise);
          DecoderRig<TypeParam> rig(layout.model, param, clouds);
          RunStream(rig, random, layout.model, noise, calibrations[c]);
          ASSERT_NO_FATAL_FAILURE(rig.Compare());
        }
      }
    }
  }
}

/// Every grid code once, so that a table prepared when the calibration arrives is right for each of them.
TYPED_TEST(DecoderOracle, AgreesOnEveryGridCode) {
  Random random(7);
  const auto plausible = PlausibleCalibration(random);
  for (const LidarType model : {TS4B, TS6}) {
    DecoderRig<TypeParam> rig(model, OpenLimits());
    rig.Calibrate(*plausible);
    const unsigned blocks = LayoutOf(model).blocks;
    for (unsigned code = 0; code < 65536; code += blocks) {
      Packet packet = PlausiblePacket(random, model);
      for (unsigned k = 0; k < blocks; ++k) packet.Code(k, (code + k) / 256, (code + k) % 256);
      rig.Feed(packet);
      rig.Feed(packet,
               static_cast<uint16_t>(Pick(random, 0, blocks)));  // a frame end before the start counts not
      rig.Feed(packet.Code(Pick(random, 0, blocks - 1), 7, 7));  // a run of codes but for one
    }
    ASSERT_NO_FATAL_FAILURE(rig.Compare());
  }
}

/// Frames without a marker are cut at 100000 points. What counts is pushed points, through an end of input
/// too.
TYPED_TEST(DecoderOracle, CutsAnEndlessFrame) {
  Random random(3);
  for (const LidarType model : {TS4B, TS6}) {
    SCOPED_TRACE(LayoutOf(model).name);
    const uint16_t blocks = LayoutOf(model).blocks;
    DecoderRig<TypeParam> rig(model, OpenLimits(), Clouds::kSometimesNull);
    const Packet packet = PlausiblePacket(random, model).Tail(0xFFFF, 1, 2, 3);
    const auto feed = [&](int packets) {
      for (int i = 0; i < packets; ++i) EXPECT_FALSE(rig.Feed(packet));
    };
    feed(10);  // the clouds of even number are null: nothing counts
    rig.Finish();
    feed(50);
    rig.Finish();
    feed(20);
    rig.Finish();
    for (int i = 0; i < blocks; ++i) rig.Feed(packet, static_cast<uint16_t>(blocks - 1));  // one point each
    feed((100000 - 1) / blocks - 50 - 1);
    EXPECT_EQ(rig.frames.size(), 3U);
    feed(1);
    EXPECT_EQ(rig.frames.size(), 4U) << "at 100000 points";
    rig.Finish();
    feed(1);
    ASSERT_NO_FATAL_FAILURE(rig.Compare());
    EXPECT_EQ(rig.frames.size(), 5U);
  }
}

/// A filter distance that is not a number filters nothing itself, and does not keep the other one from it.
TYPED_TEST(DecoderOracle, AgreesWhereADistanceOfTheNearFilterIsNotANumber) {
  Random random(11);
  for (const LidarType model : {TS4B, TS6}) {
    for (const size_t broken : {1U, 3U}) {
      DecoderRig<TypeParam> rig(model, OpenLimits());
      float filter[8] = {90.0F, 500.0F, 150.0F, 500.0F, 5.0F, 5.0F, 2.0F, 0.0F};  // all distances are near
      filter[broken] = std::numeric_limits<float>::quiet_NaN();
      const auto calibration = PlausibleCalibration(random);
      SetWeights(*calibration, {0.11F, 0.003F, -0.017F, 0.21F}, filter);
      rig.Calibrate(*calibration);
      for (int i = 0; i < 20; ++i) rig.Feed(PlausiblePacket(random, model));
      ASSERT_NO_FATAL_FAILURE(rig.Compare());
    }
  }
}

/// Where the rule knows no longest frame, a frame end that never comes must not fill the memory.
TYPED_TEST(DecoderOracle, CutsAFrameOfAMillionPoints) {
  Random random(5);
  for (const LidarType model : {NV2, TS4A}) {
    SCOPED_TRACE(LayoutOf(model).name);
    DecoderRig<TypeParam> rig(model, OpenLimits());
    const Packet packet = PlausiblePacket(random, model);
    const int most = 1'000'000 / LayoutOf(model).blocks;
    for (int cut = 1; cut <= 2; ++cut) {
      for (int i = 0; i < most; ++i) EXPECT_FALSE(rig.Feed(packet));
      EXPECT_EQ(rig.frames.size(), static_cast<size_t>(cut - 1));
      EXPECT_FALSE(rig.Feed(packet)) << "no frame end";
      ASSERT_EQ(rig.frames.size(), static_cast<size_t>(cut));
    }
  }
}

}  // namespace
}  // namespace orva::test
