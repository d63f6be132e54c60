// SPDX-License-Identifier: Apache-2.0
//
// What the driver says about the packets it was given, through the public API.
#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/fake_sensor.h"
#include "support/player.h"
#include "support/recording.h"

namespace orva::test {
namespace {

using Cloud = PointCloud<Point>;

uint64_t Accounted(const DriverStatistics& s) {
  return s.decoded + s.refused_length + s.refused_identifier + s.not_for_us + s.discarded + s.queued;
}

std::vector<uint64_t> Counts(const DriverStatistics& s) {
  return {s.received_bytes,     s.not_for_us, s.refused_length,
          s.refused_identifier, s.decoded,    s.kernel_dropped};
}

/// What the packet callback got.
struct Tap {
  std::function<void(const uint8_t*, size_t, double)> Callback() {
    return [this](const uint8_t* data, size_t length, double received) {
      packets.emplace_back(data, data + length);
      times.push_back(received);
    };
  }
  std::vector<Bytes> packets;
  std::vector<double> times;
};

TEST(Statistics, ReplayCountsPlaysApartFromTheIndexPass) {
  const ConsoleCapture quiet;
  const TempFolder folder;
  DriverParam param = ReplayParam(TS4B, folder.Path("mixed.pcap"));
  const Bytes first = Packet(TS4B).bytes(), bad = Packet(TS4B).Put(0, 0, 1).bytes();
  const Bytes ending = Packet(TS4B).FrameEnd(0).bytes();
  {
    CaptureFile file(param.input_param.pcap_path);
    file.Datagram(kRecordingPort, first).Datagram(1, first).Datagram(kRecordingPort, Bytes(1000, 7));
    file.Datagram(kRecordingPort, {}).Datagram(kRecordingPort, bad).Datagram(kRecordingPort, ending);
  }
  Random random(5);
  WriteCalibration(folder, *PlausibleCalibration(random));
  param.calibration_param.calib_folder = folder.Path();
  Tap tap;
  Player<Cloud> player;
  player.driver.RegisterPacketCallBack(tap.Callback());
  DriverStatistics s;
  s.received = 4711;
  EXPECT_FALSE(player.driver.GetStatistics(s)) << "not before InitDriver";
  EXPECT_EQ(s.received, 4711U);
  ASSERT_EQ(player.Open(param), 2);
  for (const uint64_t plays : {0U, 1U, 2U}) {
    if (plays > 0) ASSERT_NE(player.Play(0), nullptr);
    player.driver.Stop();
    ASSERT_TRUE(player.driver.GetStatistics(s));
    EXPECT_EQ(s.calibration, CALIBRATION_FROM_FOLDER);
    const std::vector<uint64_t> index = {s.index_records, s.index_not_for_us, s.index_refused_length,
                                         s.index_refused_identifier};
    EXPECT_EQ(index, (std::vector<uint64_t>{6, 2, 1, 1}));
    const std::vector<uint64_t> counts = {s.plays,   s.frames,     s.received,       s.received_bytes,
                                          s.decoded, s.not_for_us, s.refused_length, s.refused_identifier};
    std::vector<uint64_t> wanted = {1, 1, 6, 3 * 1360 + 1000, 2, 2, 1, 1};
    for (uint64_t& count : wanted) count *= plays;
    EXPECT_EQ(counts, wanted);
    EXPECT_EQ(tap.packets.size(), plays * 4) << "the index pass shows no packet";
    ASSERT_TRUE(player.driver.Start());
    ASSERT_EQ(player.WaitIndexed(), 2);
  }
  player.driver.Stop();
  const std::vector<Bytes> played = {first, Bytes(1000, 7), bad, ending};
  const std::vector<double> times = {1700000000, 1700000002, 1700000004, 1700000005};
  for (size_t i = 0; i < tap.packets.size(); ++i) {
    EXPECT_EQ(tap.packets[i], played[i % 4]) << i;
    EXPECT_EQ(tap.times[i], times[i % 4]) << i;
  }
}

class LiveStatistics : public testing::Test {
 protected:
  DriverStatistics Read() {
    DriverStatistics statistics;
    EXPECT_TRUE(player_.driver.GetStatistics(statistics));
    return statistics;
  }

  const ConsoleCapture quiet_;
  Tap tap_;
  std::atomic<uint64_t> imu_samples_{0};
  Player<Cloud> player_;
};

TEST_F(LiveStatistics, EveryDatagramIsAccountedForWhileAndAfter) {
  player_.driver.RegisterPacketCallBack(tap_.Callback());
  player_.driver.RegisterImuCallBack([this](const auto&) { ++imu_samples_; },
                                     [] { return std::make_shared<ImuMsg>(); });
  const DriverParam param = LiveParam(TS6);
  ASSERT_TRUE(player_.driver.InitDriver(param));
  EXPECT_EQ(Read().calibration, CALIBRATION_NONE);
  const auto wall_clock = [] {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  };
  const double begin = wall_clock();
  ASSERT_TRUE(player_.driver.Start());
  std::atomic<bool> flowing{true};
  std::thread reader([&] {  // one packet may be in the hands of each of the driver's two threads
    while (flowing) {
      const DriverStatistics s = Read();
      EXPECT_LE(Accounted(s), s.received);
      EXPECT_GE(Accounted(s) + 2, s.received);
    }
  });
  DriverStatistics expected;
  std::vector<Bytes> tapped;
  Random random(3);
  DataPort data(param.input_param.msop_port);
  for (unsigned i = 1; i <= 1500; ++i) {
    Packet packet = PlausiblePacket(random, TS6);
    if (i % 50 == 3) packet.FrameEnd(5);
    if (i % 7 == 0) packet.Put(3, 0, 1);
    Bytes bytes = packet.bytes();
    if (i % 11 == 0) bytes.pop_back();
    if (i % 500 == 0) bytes.resize(3000, 9);
    if (i % 100 == 0) bytes.clear();
    data.SendBytes(bytes.data(), bytes.size());
    if (bytes.size() > 1546) bytes.resize(1546);
    expected.received_bytes += bytes.size();
    ++(bytes.empty()          ? expected.not_for_us
       : bytes.size() != 1104 ? expected.refused_length
       : bytes[3] != 0xFF     ? expected.refused_identifier
                              : expected.decoded);
    if (!bytes.empty()) tapped.push_back(bytes);
  }
  EXPECT_TRUE(Eventually([&] { return Read().received == 1500 && Read().queued == 0; }));
  player_.driver.Stop();
  flowing = false;
  reader.join();

  const DriverStatistics s = Read();
  EXPECT_EQ(s.received, 1500U);
  EXPECT_EQ(Accounted(s), s.received);
  EXPECT_EQ(Counts(s), Counts(expected));
  EXPECT_GT(s.frames, 0U);
  EXPECT_EQ(s.frames, player_.Count());
  EXPECT_GT(s.imu_samples, 0U);
  EXPECT_EQ(s.imu_samples, imu_samples_);
  EXPECT_EQ(tap_.packets, tapped);
  ASSERT_FALSE(tap_.times.empty());
  EXPECT_TRUE(std::is_sorted(tap_.times.begin(), tap_.times.end()));
  EXPECT_GE(tap_.times.front(), begin);
  EXPECT_LE(tap_.times.back(), wall_clock());
}

TEST_F(LiveStatistics, AStalledCallbackDiscardsTheQueueAndStopLeavesTheRest) {
  std::atomic<bool> release{false};
  player_.on_cloud = [&](Cloud&) {
    EXPECT_TRUE(Eventually([&] { return release.load(); }));
    player_.driver.Stop();
  };
  const DriverParam param = LiveParam(TS4A);
  ASSERT_TRUE(player_.driver.InitDriver(param));
  ASSERT_TRUE(player_.driver.Start());
  DataPort data(param.input_param.msop_port);
  data.Send(Packet(TS4A).FrameEnd(0));
  ASSERT_TRUE(Eventually([&] { return Read().frames == 1; }));
  for (int i = 0; i < 8200; ++i) data.SendBytes("x", 1);
  EXPECT_TRUE(Eventually([&] { return Read().discarded == 8192 && Read().queued == 8; }));
  EXPECT_EQ(Accounted(Read()), 8201U);
  EXPECT_EQ(Read().kernel_dropped, 0U) << "receiving never waited";
  release = true;
  ASSERT_NE(player_.Wait(1), nullptr);
  player_.driver.Stop();
  const DriverStatistics s = Read();
  EXPECT_TRUE(s.received == 8201 && s.decoded == 1 && s.discarded == 8192 && s.queued == 8);
}

TEST_F(LiveStatistics, TheKernelsDropsAndADownloadAreSeen) {
  const std::string stream = SectionStream(CheckParam());
  CommandPort command(CommandPort::Obedient(stream));
  DriverParam param = LiveParam(TS6);
  param.calib_from_lidar = true;
  param.calibration_param = command.Param();
  ASSERT_TRUE(player_.driver.InitDriver(param));
  EXPECT_EQ(Read().calibration, CALIBRATION_DOWNLOADING);
  EXPECT_EQ(Read().calibration_bytes, 0U);

  // Nobody reads yet, and a waiting datagram takes more room than its payload.
  const uint64_t sent = Read().receive_buffer_bytes / 1104 + 10;
  ASSERT_GT(sent, 10U);
  const UdpPeer sensor;
  for (uint64_t i = 0; i < sent; ++i) {
    sensor.Send(param.input_param.msop_port, Packet(TS6).data(), Packet(TS6).size());
  }
  EXPECT_GE(Read().kernel_dropped, 10U);
  ASSERT_TRUE(player_.driver.Start());
  EXPECT_TRUE(Eventually([&] { return Read().decoded + Read().kernel_dropped == sent; }));
  EXPECT_TRUE(Eventually([&] { return Read().calibration == CALIBRATION_FROM_SENSOR; }));
  EXPECT_EQ(Read().calibration_bytes, stream.size());
}

}  // namespace
}  // namespace orva::test
