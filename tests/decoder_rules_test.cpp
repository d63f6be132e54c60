// SPDX-License-Identifier: Apache-2.0
//
// The decoders against values worked out by hand, which would also show an error of the transcription.
#include "decoder/decoder_ts6.h"
#include "support/calibrations.h"
#include "support/decoder_rig.h"
#include "support/process_hooks.h"

namespace orva::test {
namespace {

using TimeRig = DecoderRig<PointCloud<PointTime>>;
using SourceRig = DecoderRig<PointCloud<PointSource>>;

TEST(TS4BRules, ProjectsByTableOrByFormula) {
  auto check = std::make_unique<CheckParam>();
  check->azimuth[10 * 256 + 3] = -30.0F;  // the sign turns
  check->elevation[10 * 256 + 3] = 60.0F;
  struct Case {
    unsigned line, column;
    double azimuth, elevation;
  };
  const Case cases[] = {{0, 0, 0.0, 0.0},
                        {10, 3, 30.0, 60.0},
                        {191, 255, 0.0, 0.0},    // the table's last entry
                        {192, 0, 60.0, -45.47},  // beyond the table
                        {255, 255, -60.0, -75.15}};
  SourceRig rig(TS4B, OpenLimits());
  rig.Calibrate(*check);
  Packet packet(TS4B);
  for (size_t k = 0; k < std::size(cases); ++k) {
    packet.Code(k, cases[k].line, cases[k].column).Flight(k, 100.5).Intensity(k, 0x12345).Pulse(k, 0, 1);
  }
  rig.Feed(packet);
  const double d = (100.5 * 1.645 - 2.09) * 0.15;  // 24.48...
  for (size_t k = 0; k < std::size(cases); ++k) {
    SCOPED_TRACE(k);
    const PointSource& point = rig.decoder->point_cloud_->points[k];
    const double az = cases[k].azimuth * M_PI / 180;
    const double el = cases[k].elevation * M_PI / 180;
    EXPECT_NEAR(point.x, d * std::cos(el) * std::cos(az), 1e-4);
    EXPECT_NEAR(point.y, d * std::cos(el) * std::sin(az), 1e-4);
    EXPECT_NEAR(point.z, d * std::sin(el), 1e-4);
    EXPECT_EQ(point.intensity, 0x2345);
    EXPECT_EQ(point.label, cases[k].line);
    EXPECT_EQ(point.source_distance, 24);
    EXPECT_EQ(point.timestamp, 0.0);
  }
  EXPECT_EQ(rig.decoder->point_cloud_->points[5].source_distance, INT64_MIN)
      << "pulse divisor 0: no distance";
}

TEST(TS4BRules, CorrectsAndFiltersDistances) {
  auto check = std::make_unique<CheckParam>();
  SetWeights(*check, {0.5F, 0.25F, 0.125F, -1.0F}, {100.0F, 10.0F, 70.0F, 4.0F, 0, 0, 0, 0});
  const double ratio = 3.0;
  struct Case {
    double wanted;       // distance after correction, metres
    unsigned intensity;  // 24 bits
    bool filtered;
  };
  const Case cases[] = {
      {20.0, 0, false},      // beyond the near distance
      {8.0, 21, false},      // near: 100 * 2 / 10 is not above 21
      {8.0, 19, true},       // but above 19
      {3.0, 71, false},      // very near: the threshold alone
      {3.0, 69, true},       //
      {3.0, 0x10000, false}  // all 24 bits count, the point keeps 16
  };
  SourceRig rig(TS4B, OpenLimits());
  rig.Calibrate(*check);
  Packet packet(TS4B);
  for (size_t k = 0; k < std::size(cases); ++k) {
    const double constant = ratio * ratio * 0.125 + ratio * 0.5 - 1.0;
    const double raw = (cases[k].wanted + constant) / 0.75;
    packet.Flight(k, (raw / 0.15 + 2.09) / 1.645).Pulse(k, 300, 100).Intensity(k, cases[k].intensity);
  }
  rig.Feed(packet);
  for (size_t k = 0; k < std::size(cases); ++k) {
    const PointSource& point = rig.decoder->point_cloud_->points[k];
    EXPECT_NEAR(point.x, cases[k].filtered ? 0.0 : cases[k].wanted, 0.005) << k;
    EXPECT_EQ(point.intensity, cases[k].intensity & 0xFFFFU) << k;
  }
}

TEST(TS6Rules, TimesOfFramesAndPoints) {
  TimeRig rig(TS6, OpenLimits());
  const double epoch = 946684800.0;  // 2000-01-01
  for (unsigned i = 0; i < 12; ++i) {
    Packet packet(TS6);
    packet.Utc(500000, 2000, 1, 1, 0, 0, i).Stamp(7);
    if (i == 9) packet.FrameEnd(0);
    rig.Feed(packet);
  }
  ASSERT_EQ(rig.frames.size(), 1U);
  EXPECT_EQ(rig.frames[0].time, epoch + 0.5) << "of the frame's first packet";
  const auto& points = rig.frames[0].cloud->points;
  EXPECT_EQ(points[255].timestamp, epoch + 0.5);
  EXPECT_EQ(points[256].timestamp, epoch + 3.5) << "renewed by the packet of block 255";
  EXPECT_EQ(points[512].timestamp, epoch + 7.5);
  EXPECT_EQ(rig.decoder->point_cloud_->points[0].timestamp, epoch + 10.5);
  Packet unstamped(TS6);
  unstamped.Imu({2048, -2048, 1000, 32, -32, 64});
  rig.Feed(unstamped, 64);
  rig.Feed(unstamped, 64);
  ASSERT_EQ(rig.imu.size(), 3U) << "one stamp, one sample; a stamp of 0 is always published";
  EXPECT_NEAR(rig.imu[2].angular_velocity_x, -2.0 * M_PI / 180.0, 1e-7);
  EXPECT_NEAR(rig.imu[2].angular_velocity_y, 1.0 * M_PI / 180.0, 1e-7);
  EXPECT_NEAR(rig.imu[2].angular_velocity_z, 1.0 * M_PI / 180.0, 1e-7);
  EXPECT_NEAR(rig.imu[2].linear_acceleration_x, -1000 * 9.80665 / 2048, 1e-4);
  EXPECT_NEAR(rig.imu[2].linear_acceleration_y, 9.80665, 1e-4);
  EXPECT_NEAR(rig.imu[2].linear_acceleration_z, 9.80665, 1e-4);
}

TEST(TS6Rules, PrintsElevationsSixteenToALine) {
  auto check = std::make_unique<CheckParam>();
  check->elevation[17] = 1.5F;
  tevoro::lidar::TS6Impl<PointCloud<Point>> impl(nullptr);
  impl.UpdateCheckParam(check.get());
  const ConsoleCapture console;
  impl.Print();
  std::fflush(stdout);
  EXPECT_EQ(Occurrences(console.Text(), "\n"), (CALIB_TABLE_ENTRIES - 1) / 16);
  EXPECT_EQ(console.Text().find("\n1.5 0 "), 2U * 17) << "the first line holds one more";
}

/// What a sensor's clock says, and the seconds since the epoch that it means.
struct Moment {
  unsigned microseconds, year, month, day, hour, minute, second;
  double seconds;
};
constexpr Moment kMoments[] = {{500000, 2026, 3, 1, 9, 30, 0, 1772357400.5},
                               {0, 2026, 3, 1, 8, 30, 0, 1772353800.0},  // an hour back
                               {999999, 2026, 2, 31, 24, 60, 61, 1772586061.999999},
                               {0xFFFFFF, 65535, 255, 255, 255, 255, 255, 2006608360755.0 + 16.777215},
                               {0, 0, 0, 0, 0, 0, 0, -62169984000.0},
                               {0, 2106, 2, 7, 6, 28, 16, 4294967296.0},
                               {0, 1970, 1, 1, 0, 0, 0, 0.0}};
constexpr size_t kMomentCount = std::size(kMoments);

Packet At(LidarType model, size_t packet) {
  const Moment& m = kMoments[packet % kMomentCount];
  return Packet(model).Utc(m.microseconds, m.year, m.month, m.day, m.hour, m.minute, m.second);
}

/// Backwards, impossible dates, beyond 2106: frames end as ever, each with the time that it has by its
/// packets.
TEST(NV2Rules, AWrongClockCostsNoFrame) {
  TimeRig rig(NV2, OpenLimits());
  for (unsigned i = 0; i < kMomentCount * 5 + 1; ++i)
    EXPECT_EQ(rig.Feed(At(NV2, i).Line(i % 5)), i > 0 && i % 5 == 0);
  ASSERT_NO_FATAL_FAILURE(rig.Compare());
  ASSERT_EQ(rig.frames.size(), kMomentCount);
  for (size_t i = 0; i < kMomentCount; ++i)
    EXPECT_EQ(rig.frames[i].time, kMoments[(i + 1) * 5 % kMomentCount].seconds) << i;
}

/// Likewise. A time of 0 is none: the next packet's counts.
TEST(TS6Rules, AWrongClockCostsNoFrame) {
  TimeRig rig(TS6, OpenLimits());
  for (unsigned i = 0; i < kMomentCount * 5; ++i) {
    Packet packet = At(TS6, i).Stamp(i + 1);
    if (i % 5 == 4) packet.FrameEnd(63);
    EXPECT_EQ(rig.Feed(packet), i % 5 == 4);
  }
  ASSERT_NO_FATAL_FAILURE(rig.Compare());
  ASSERT_EQ(rig.frames.size(), kMomentCount);
  for (size_t i = 0; i < kMomentCount; ++i) {
    const Moment& first = kMoments[i * 5 % kMomentCount];
    const double time = first.seconds != 0.0 ? first.seconds : kMoments[0].seconds;
    EXPECT_EQ(rig.frames[i].time, time) << i;
    EXPECT_EQ(rig.frames[i].cloud->points[0].timestamp, first.seconds) << i;
    EXPECT_EQ(rig.imu[i * 5].timestamp, first.seconds) << i;
  }
}

TEST(NV2Rules, LinesAnglesAndImu) {
  TimeRig rig(NV2, OpenLimits());
  for (unsigned i = 0; i < 58; ++i) {
    Packet packet(NV2);
    packet.Line(i % 56).Utc(1250000, 2000, 1, 1, 0, 0, i);
    packet.Measure(0, 0xF123, 2000).Measure(96, 0x0FFF, 2000).Measure(97, 0, 0);
    if (i == 57) packet.Imu({1, 2, 3, 4, 5, 6});
    EXPECT_EQ(rig.Feed(packet), i == 56);
  }
  ASSERT_EQ(rig.frames.size(), 1U);
  EXPECT_EQ(rig.frames[0].time, 946684801.25 + 56);
  const auto& points = rig.frames[0].cloud->points;
  ASSERT_EQ(points.size(), 57U * 192) << "the line that fell is part of the frame it ended";
  const double d = 2000 * 0.009375 - 2.0;
  const double down = 15.0 * M_PI / 180;
  EXPECT_NEAR(points[0].x, d * std::cos(down) * 0.5, 1e-4);
  EXPECT_NEAR(points[0].y, d * std::cos(down) * std::sin(M_PI / 3), 1e-4);
  EXPECT_NEAR(points[0].z, d * std::sin(down), 1e-4) << "line 0 looks up";
  EXPECT_EQ(points[0].intensity, 0x123);
  EXPECT_EQ(points[96].y, 0.0F);
  EXPECT_EQ(points[97].x, 0.0F);
  EXPECT_EQ(points[55 * 192].timestamp, 946684801.25 + 55);
  EXPECT_EQ(rig.imu.size(), 1U) << "the all-zero sample of the start is no news";
}

TEST(DecoderBase, RefusesAndReports) {
  SourceRig rig(TS4B, OpenLimits()), other(TS4A, OpenLimits());
  TimeRig of_other_type(TS4B, OpenLimits());  // each cloud type counts its reports for itself
  std::string reports;
  const auto report = [&reports](const Error& error) {
    EXPECT_EQ(error.error_level, 1);
    reports += std::to_string(error.error_code) + ' ';
  };
  for (auto* decoder : {rig.decoder.get(), other.decoder.get()}) decoder->RegisterCallBack(report, nullptr);
  of_other_type.decoder->RegisterCallBack(report, nullptr);
  const std::string wrong_length = "ProcessMsopPacket MSOP_LEN:1360 size:1359\n";
  const std::string wrong_identifier = "ProcessMsopPacket MSOP_ID\n";
  const Packet good(TS4B), bad = Packet(TS4B).Put(7, 0xFE, 1);
  /// Gives it a packet of a certain length: what it then says and reports.
  const auto process = [&](auto& decoder, const Packet& packet, size_t length) {
    const ConsoleCapture console;
    reports.clear();
    EXPECT_FALSE(decoder->ProcessMsopPacket(packet.data(), length, 0));
    return console.Text() + reports;
  };
  const auto probe = [&](const Packet& packet, size_t length) {
    const ConsoleCapture console;
    uint16_t seq = 0;
    reports.clear();
    EXPECT_FALSE(rig.decoder->toSplite(packet.data(), length, seq));
    return console.Text() + reports;
  };
  AdvanceClock(10);
  EXPECT_EQ(process(rig.decoder, good, 1359), wrong_length + "65 ");
  EXPECT_EQ(process(rig.decoder, good, 1359), wrong_length) << "a line each, one report";
  EXPECT_EQ(process(rig.decoder, bad, 1360), wrong_identifier + "66 ");
  EXPECT_EQ(process(rig.decoder, bad, 1360), wrong_identifier);
  EXPECT_EQ(process(rig.decoder, bad, 1359), wrong_length) << "the length is tested first";
  EXPECT_EQ(probe(good, 1361) + probe(bad, 1360), "65 66 ")
      << "probing reports for itself, and prints nothing";
  EXPECT_EQ(probe(good, 1361) + probe(bad, 1360), "");
  AdvanceClock(1);
  EXPECT_EQ(process(other.decoder, good, 1359), wrong_length) << "too soon, for any decoder of the process";
  EXPECT_EQ(process(of_other_type.decoder, good, 1359), wrong_length + "65 ");
  AdvanceClock(1);
  EXPECT_EQ(process(other.decoder, good, 1359), wrong_length + "65 ");
  EXPECT_TRUE(rig.decoder->point_cloud_->points.empty());
}

// Nothing in the library calls these: whole packets have loops of their own.
TEST(DecoderBase, RulesOfOnePointAgreeWithThePackets) {
  DecoderParam param = OpenLimits();
  Random random(5);
  const auto check = PlausibleCalibration(random);
  SourceRig plain(TS4B, param);
  param.use_transform = true;
  param.yaw = 30.0F;
  param.pitch = -4.0F;
  param.z_offset = 1.5F;
  SourceRig mounted(TS4B, param);
  const Packet packet = PlausiblePacket(random, TS4B);
  for (SourceRig* rig : {&plain, &mounted}) {
    rig->Calibrate(*check);
    rig->Feed(packet);
  }
  for (size_t k = 0; k < packet.layout().blocks; ++k) {
    PointSource point = plain.decoder->point_cloud_->points[k];
    const PointSource& wanted = mounted.decoder->point_cloud_->points[k];
    if (wanted.x == 0.0F && wanted.y == 0.0F && wanted.z == 0.0F) continue;
    plain.decoder->TransformPoint(point.x, point.y, point.z);
    EXPECT_NE(point.x, wanted.x);  // not mounted: nothing happens
    mounted.decoder->TransformPoint(point.x, point.y, point.z);
    EXPECT_TRUE(point.x == wanted.x && point.y == wanted.y && point.z == wanted.z) << k;
  }
  param.min_distance = param.min_azimuth = param.min_elevation = -1.0F;
  param.max_distance = param.max_azimuth = param.max_elevation = 2.0F;
  const SourceRig narrow(TS6, param);
  for (const float value : {-1.0F, 2.0F, -1.1F, 2.1F, NAN}) {
    const bool inside = value == -1.0F || value == 2.0F;
    EXPECT_EQ(narrow.decoder->IsDistanceRange(value), inside) << value;
    EXPECT_EQ(narrow.decoder->IsAngleRange(value, 0.0F), inside) << value;
    EXPECT_EQ(narrow.decoder->IsAngleRange(0.0F, value), inside) << value;
  }
}

/// Else the runs of this suite that ask for the narrow path would quietly test the wide one again.
TEST(PacketLoops, TheEnvironmentCanAskForTheNarrowOnes) {
  const char* const asked = std::getenv("ORVA_ISA");
  const std::string chosen = tevoro::lidar::ChoosePacketLoops().instruction_set;
  if (asked != nullptr) EXPECT_EQ(chosen, asked);
#if defined(__x86_64__)
  if (asked == nullptr && __builtin_cpu_supports("avx2")) EXPECT_NE(chosen, "baseline");
#endif
}

}  // namespace
}  // namespace orva::test
