// SPDX-License-Identifier: Apache-2.0
//
// What the driver says about the packets it was given, through the public API.
#include "sim/calibration_server.h"
#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/player.h"
#include "support/recording.h"

namespace orva::test {
namespace {

using Cloud = PointCloud<Point>;
using Counts = std::vector<uint64_t>;

uint64_t Accounted(const DriverStatistics& s) {
  return s.decoded + s.refused_length + s.refused_identifier + s.not_for_us + s.discarded + s.queued;
}

class StatisticsTest : public testing::Test {
 protected:
  /// Keeps what the packet callback gets.
  void Tap() {
    player_.driver.RegisterPacketCallBack([this](const uint8_t* data, size_t length, double received) {
      packets_.emplace_back(data, data + length);
      times_.push_back(received);
    });
  }
  DriverStatistics Read() { return player_.Statistics(); }

  const ConsoleCapture quiet_;
  std::vector<Bytes> packets_;
  std::vector<double> times_;
  Player<Cloud> player_;
};

TEST_F(StatisticsTest, ReplayCountsPlaysApartFromTheIndexPass) {
  const TempFolder folder;
  DriverParam param = ReplayParam(TS4B, folder.Path("mixed.pcap"));
  const Bytes first = Packet(TS4B).bytes(), bad = Packet(TS4B).Put(0, 0, 1).bytes();
  const Bytes ending = Packet(TS4B).FrameEnd(0).bytes(), odd(1000, 7);
  CaptureFile(param.input_param.pcap_path)
      .Datagram(kRecordingPort, first)
      .Datagram(1, first)
      .Datagram(kRecordingPort, odd)
      .Datagram(kRecordingPort, {})
      .Datagram(kRecordingPort, bad)
      .Datagram(kRecordingPort, ending);
  Random random(5);
  WriteCalibration(folder, *PlausibleCalibration(random));
  param.calibration_param.calib_folder = folder.Path();
  Tap();
  DriverStatistics s;
  s.received = 4711;
  EXPECT_FALSE(player_.driver.GetStatistics(s)) << "not before InitDriver";
  EXPECT_EQ(s.received, 4711U);
  ASSERT_EQ(player_.Open(param), 2);
  for (const uint64_t plays : {0U, 1U, 2U}) {
    if (plays > 0) ASSERT_NE(player_.Play(0), nullptr);
    player_.driver.Stop();
    s = Read();
    EXPECT_EQ(s.calibration, CALIBRATION_FROM_FOLDER);
    EXPECT_EQ(
        (Counts{s.index_records, s.index_not_for_us, s.index_refused_length, s.index_refused_identifier}),
        (Counts{6, 2, 1, 1}));
    Counts wanted = {1, 1, 6, 3 * 1360 + 1000, 2, 2, 1, 1};
    for (uint64_t& count : wanted) count *= plays;
    EXPECT_EQ((Counts{s.plays, s.frames, s.received, s.received_bytes, s.decoded, s.not_for_us,
                      s.refused_length, s.refused_identifier}),
              wanted);
    EXPECT_EQ(packets_.size(), plays * 4) << "the index pass shows no packet";
    ASSERT_TRUE(player_.driver.Start());
    ASSERT_EQ(player_.WaitIndexed(), 2);
  }
  EXPECT_EQ(packets_, (std::vector<Bytes>{first, odd, bad, ending, first, odd, bad, ending}));
  times_.resize(4);
  EXPECT_EQ(times_, (std::vector<double>{1700000000, 1700000002, 1700000004, 1700000005}));
}

TEST_F(StatisticsTest, ReplayTellsTimesAfter2038) {
  const TempFolder folder;
  const DriverParam param = ReplayParam(TS4B, folder.Path("late.pcap"));
  Tap();
  for (const Encoding encoding : {Encoding::kMicroseconds, Encoding::kNanoseconds, Encoding::kOtherByteOrder,
                                  Encoding::kPcapngSeconds}) {
    SCOPED_TRACE(static_cast<int>(encoding));
    std::vector<double> wanted = {2'147'483'647, 2'147'483'648, 2'200'000'000, 4'294'967'295};
    if (encoding == Encoding::kPcapngSeconds) wanted.push_back(5'000'000'000);
    {
      CaptureFile file(param.input_param.pcap_path, encoding);
      for (const double time : wanted) {
        file.At(static_cast<uint64_t>(time), 0).Datagram(kRecordingPort, Packet(TS4B).bytes());
      }
    }
    times_.clear();
    ASSERT_EQ(player_.Open(param), 1);
    ASSERT_NE(player_.Play(0), nullptr);
    EXPECT_EQ(times_, wanted);
  }
}

TEST_F(StatisticsTest, EveryDatagramIsAccountedForWhileAndAfter) {
  Tap();
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
      EXPECT_TRUE(Accounted(s) <= s.received && Accounted(s) + 2 >= s.received);
    }
  });
  DriverStatistics expected;
  std::vector<Bytes> sent;
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
    bytes.resize(std::min<size_t>(bytes.size(), 1546));
    expected.received_bytes += bytes.size();
    ++(bytes.empty()          ? expected.not_for_us
       : bytes.size() != 1104 ? expected.refused_length
       : bytes[3] != 0xFF     ? expected.refused_identifier
                              : expected.decoded);
    if (!bytes.empty()) sent.push_back(bytes);
  }
  EXPECT_TRUE(Eventually([&] {  // a packet counts as received before it is queued
    const DriverStatistics s = Read();
    return s.received == 1500 && s.queued == 0 && Accounted(s) == s.received;
  }));
  player_.driver.Stop();
  flowing = false;
  reader.join();

  const DriverStatistics s = Read();
  EXPECT_EQ(s.received, 1500U);
  EXPECT_EQ(Accounted(s), s.received);
  EXPECT_EQ((Counts{s.received_bytes, s.not_for_us, s.refused_length, s.refused_identifier, s.decoded,
                    s.kernel_dropped}),
            (Counts{expected.received_bytes, expected.not_for_us, expected.refused_length,
                    expected.refused_identifier, expected.decoded, 0}));
  EXPECT_TRUE(s.frames > 0 && s.frames == player_.Count());
  EXPECT_TRUE(s.imu_samples > 0 && s.imu_samples == player_.imu.size());
  EXPECT_EQ(packets_, sent);
  ASSERT_FALSE(times_.empty());
  EXPECT_TRUE(std::is_sorted(times_.begin(), times_.end()));
  EXPECT_TRUE(times_.front() >= begin && times_.back() <= wall_clock());
}

TEST_F(StatisticsTest, AStalledCallbackDiscardsTheQueueAndStopLeavesTheRest) {
  std::atomic<bool> release{false};
  player_.on_cloud = [&](Cloud&) {
    EXPECT_TRUE(Eventually([&] { return release.load(); }));
    player_.driver.Stop();
  };
  const DriverParam param = LiveParam(TS4A);
  ASSERT_TRUE(player_.Run(param));
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
  EXPECT_EQ((Counts{s.received, s.decoded, s.discarded, s.queued}), (Counts{8201, 1, 8192, 8}));
}

TEST_F(StatisticsTest, TheKernelsDropsAndADownloadAreSeen) {
  const std::string stream = SectionStream(CheckParam());
  const sim::CalibrationServer command({stream.begin(), stream.end()}, kLoopback, 0);
  DriverParam param = LiveParam(TS6);
  param.calib_from_lidar = true;
  param.calibration_param = CommandParam(command.Port());
  ASSERT_TRUE(player_.driver.InitDriver(param));
  EXPECT_EQ(Read().calibration, CALIBRATION_DOWNLOADING);
  EXPECT_EQ(Read().calibration_bytes, 0U);

  // Nobody reads yet, and a waiting datagram takes more room than its payload.
  const uint64_t sent = Read().receive_buffer_bytes / 1104 + 10;
  ASSERT_GT(sent, 10U);
  const UdpPeer sensor;
  const auto overflow = [&] {
    for (uint64_t i = 0; i < sent; ++i) {
      sensor.Send(param.input_param.msop_port, Packet(TS6).data(), Packet(TS6).size());
    }
  };
  overflow();
  EXPECT_GE(Read().kernel_dropped, 10U);
  ASSERT_TRUE(player_.driver.Start());
  EXPECT_TRUE(Eventually([&] { return Read().decoded + Read().kernel_dropped == sent; }));
  EXPECT_TRUE(Eventually([&] { return Read().calibration == CALIBRATION_FROM_SENSOR; }));
  EXPECT_EQ(Read().calibration_bytes, stream.size());

  // Nobody reads any more: what overflows now is no loss, nor is it one after a further start.
  player_.driver.Stop();
  const uint64_t lost = Read().kernel_dropped, received = Read().received;
  overflow();
  EXPECT_EQ(Read().kernel_dropped, lost);
  ASSERT_TRUE(player_.driver.Start());
  EXPECT_TRUE(Eventually([&] { return Read().received > received; }));
  EXPECT_EQ(Read().kernel_dropped, lost);
}

TEST_F(StatisticsTest, OnlyAWholeDownloadCountsAsCalibration) {
  struct Case {
    LidarType model;
    const char* sections;
    int32_t filled;
    CalibrationState state;
    char first_byte;
  };
  for (const Case& c :
       {Case{TS4B, "DBCA", 4, CALIBRATION_FROM_SENSOR, 'D'}, Case{TS6, "ABD", 3, CALIBRATION_NONE, 'A'},
        Case{TS4A, "ABCD", 3, CALIBRATION_NONE, 'a'}, Case{TS4, "ABCD", 0, CALIBRATION_NONE, 'A'},
        Case{NV2, "ABCD", 0, CALIBRATION_NONE, 'A'}}) {
    SCOPED_TRACE(testing::Message() << c.model << c.sections);
    std::string stream = SectionStream(CheckParam(), c.sections);
    stream[0] = c.first_byte;
    const sim::CalibrationServer command({stream.begin(), stream.end()}, kLoopback, 0);
    DriverParam param = LiveParam(c.model);
    param.calib_from_lidar = true;
    param.calibration_param = CommandParam(command.Port());
    ASSERT_TRUE(player_.driver.InitDriver(param) && player_.driver.Start());
    EXPECT_TRUE(Eventually([&] { return Read().calibration != CALIBRATION_DOWNLOADING; }));
    EXPECT_EQ(Read().calibration, c.state);
    EXPECT_EQ(Read().calibration_sections, c.filled);
    EXPECT_EQ(Read().calibration_bytes, stream.size());
  }
}

}  // namespace
}  // namespace orva::test
