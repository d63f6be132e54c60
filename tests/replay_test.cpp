// SPDX-License-Identifier: Apache-2.0
//
// Recordings through the public API.
#include <gtest/gtest.h>

#include <atomic>

#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/player.h"
#include "support/recording.h"
#include "support/same.h"

namespace orva::test {
namespace {

template <typename PC>
class Replay : public testing::Test {};
using CloudTypes = testing::Types<PointCloud<Point>, PointCloud<PointTime>, PointCloud<PointSource>>;
TYPED_TEST_SUITE(Replay, CloudTypes);

TYPED_TEST(Replay, PlaysEveryModelAsTranscribed) {
  Random random(5);
  const TempFolder folder;
  const auto check = PlausibleCalibration(random);
  WriteCalibration(folder, *check);
  for (const WireLayout& layout : WIRE_LAYOUTS) {
    SCOPED_TRACE(layout.name);
    const TempFolder captures;
    const std::vector<Packet> packets = FiveSweeps(random, layout.model);
    DriverParam param = ReplayParam(layout.model, captures.Path("sweeps.pcap"));
    WriteRecording(param.input_param.pcap_path, packets);
    param.calib_from_lidar = true;  // a replay reads the folder all the same
    param.calibration_param.calib_folder = folder.Path();
    param.decoder_param.use_transform = true;
    param.decoder_param.yaw = 33.0F;
    ReferencePlayer<TypeParam> reference(layout.model, param.decoder_param, packets);
    // TS4 and TS4A want four times the values, so their calibration stays at its defaults.
    reference.decoder->Update(*check);

    const ConsoleCapture quiet;
    Player<TypeParam> player;
    const int frames = player.Open(param);
    ASSERT_EQ(frames, static_cast<int>(reference.index.size()));
    EXPECT_FALSE(player.driver.SetLocalFrame(-1) || player.driver.SetLocalFrame(frames));
    for (const int frame : {0, 1, 2, 3, 4, 4, 1, 1, 0}) {
      if (frame >= frames) continue;
      SCOPED_TRACE(testing::Message() << "frame " << frame);
      reference.Play(static_cast<size_t>(frame));
      player.Play(frame);
      ASSERT_NE(player.Wait(reference.clouds.size()), nullptr);
    }
    ASSERT_EQ(player.Count(), reference.clouds.size());
    for (size_t i = 0; i < reference.clouds.size(); ++i) {
      SCOPED_TRACE(testing::Message() << "cloud " << i);
      ASSERT_NO_FATAL_FAILURE(ExpectSameCloud(*player.Wait(i + 1), *reference.clouds[i]));
    }
  }
}

class ReplayTest : public testing::Test {
 protected:
  using Cloud = PointCloud<Point>;
  using Extents = std::vector<size_t>;

  /// Full packets of one point each side of the marker: sweep k ends in block 15 of packet 3k + 2, and its
  /// points carry the number of their packet as intensity.
  DriverParam Sweeps(int sweeps) {
    std::vector<Packet> packets;
    for (int i = 0; i < 3 * sweeps; ++i) {
      packets.emplace_back(TS4B);
      for (size_t k = 0; k < 32; ++k) {
        packets.back().Intensity(k, static_cast<unsigned>(i)).Flight(k, 100).Pulse(k, 0, 1);
      }
      if (i % 3 == 2) packets.back().FrameEnd(15);
    }
    WriteRecording(folder_.Path("sweeps.pcap"), packets);
    return ReplayParam(TS4B, folder_.Path("sweeps.pcap"));
  }
  /// First and last packet of a cloud, and its size.
  static Extents Extent(const std::shared_ptr<Cloud>& cloud) {
    if (cloud == nullptr) return {};
    const auto& points = cloud->points;
    if (points.empty()) return {0};
    return {points.front().intensity, points.back().intensity, points.size()};
  }

  TempFolder folder_;
  ConsoleCapture console_;
};

TEST_F(ReplayTest, FramesOfARecording) {
  const DriverParam param = Sweeps(3);
  Player<Cloud> player;
  ASSERT_EQ(player.Open(param), 4) << "three marked frames and what follows the last marker";
  const std::string finished = "\033[1m\033[32mpcap file is load finished!\033[0m\n";
  EXPECT_TRUE(console_.Text().ends_with(".pcap\n" + finished)) << console_.Text();
  EXPECT_EQ(Extent(player.Play(0)), (Extents{0, 2, 96}));
  EXPECT_EQ(Extent(player.Play(1)), (Extents{2, 5, 16 + 96}));
  EXPECT_EQ(Extent(player.Play(1)), (Extents{2, 5, 16 + 96}));
  EXPECT_EQ(Extent(player.Play(3)), (Extents{8, 8, 16})) << "ends with the file";
  EXPECT_EQ(Extent(player.Play(0)), (Extents{0, 2, 96})) << "and the file can be read again";
  DriverParam other_port = param;
  other_port.input_param.msop_port = 4711;
  EXPECT_EQ(player.Open(other_port), 0);
  EXPECT_FALSE(player.driver.SetLocalFrame(0));
}

/// The running driver keeps the callbacks it was initialised with.
TEST_F(ReplayTest, MissingAndLateCallbacks) {
  const DriverParam param = Sweeps(2);
  std::atomic<int> puts{0};
  Player<Cloud> player;
  /// Plays three frames, and returns how often the yellow line was printed.
  const auto play = [&] {
    const size_t before = console_.Text().size();
    EXPECT_EQ(player.Open(param), 3);
    EXPECT_TRUE(player.Ask(0) && player.Ask(1) && player.Ask(1));
    player.driver.Stop();
    return Occurrences(console_.Text().substr(before),
                       "\033[1m\033[33mError:Get point cloud call back is nullptr!\033[0m\n");
  };
  ASSERT_EQ(player.Open(param), 3);
  player.driver.RegisterPointCloudCallBack([&](auto) { ++puts; }, nullptr);
  EXPECT_NE(player.Play(0), nullptr);
  EXPECT_GE(play(), 3) << "once for each cloud that is needed";
  player.driver.RegisterPointCloudCallBack([&](auto) { ++puts; }, [] { return std::shared_ptr<Cloud>(); });
  EXPECT_EQ(play(), 0) << "a null cloud says nothing";
  EXPECT_EQ(puts, 0) << "and is not delivered";
  player.driver.RegisterPointCloudCallBack(nullptr, [] { return std::make_shared<Cloud>(); });
  EXPECT_EQ(play(), 0);
}

TEST_F(ReplayTest, StartGoesOnWhereStopLeftTheFile) {
  Player<Cloud> player;
  ASSERT_EQ(player.Open(Sweeps(3)), 4);
  EXPECT_TRUE(player.driver.Start()) << "runs already";
  player.driver.Stop();
  player.driver.Stop();
  ASSERT_TRUE(player.driver.Start());
  EXPECT_EQ(player.WaitIndexed(), 4) << "the file stood at its end";
  player.Play(0);
  player.driver.Stop();
  ASSERT_TRUE(player.driver.Start());
  EXPECT_EQ(player.WaitIndexed(), 6) << "two markers are read a second time";
  EXPECT_EQ(Extent(player.Play(4)), (Extents{5, 8, 112}));
}

/// A cloud that looks at the driver's status while it is filled.
struct CancellingCloud : PointCloud<Point> {
  void PushPoint(const Point& point) override {
    points.push_back(point);
    if (points.size() == cancel_at) on_cancel();
  }
  size_t cancel_at = 0;
  std::function<void()> on_cancel;
};

TEST_F(ReplayTest, StatusCancelsAPlay) {
  for (const size_t cancel_at : {5U, 40U}) {  // in the first packet, whose decoding holds the lock, and later
    SCOPED_TRACE(cancel_at);
    bool first = true;
    int frames = 0;
    OrvaDriver<Cloud>* driver = nullptr;
    std::atomic<bool> cancelled{false};
    Player<Cloud> player([&] {
      auto cloud = std::make_shared<CancellingCloud>();
      if (std::exchange(first, false)) cloud->cancel_at = cancel_at;
      cloud->on_cancel = [&] {
        EXPECT_FALSE(driver->SetLocalFrame(2)) << "a play is under way";
        EXPECT_TRUE(driver->GetLocalFileStatus(frames));
        EXPECT_EQ(frames, 4);
        cancelled = true;
      };
      return cloud;
    });
    driver = &player.driver;
    ASSERT_EQ(player.Open(Sweeps(3)), 4);
    ASSERT_TRUE(player.Ask(0));
    ASSERT_TRUE(Eventually([&] { return cancelled.load(); }));
    // The packet under way is decoded to its end; its points open the cloud of the next play.
    const size_t kept = cancel_at == 5 ? 32 : 64;
    EXPECT_EQ(Extent(player.Play(1)), (Extents{0, 5, kept + 16 + 96}));
  }
}

/// A request made after a cancel counts, though the turn that was cancelled is still at work.
TEST_F(ReplayTest, ACallbackMayCancelAskForMoreAndStop) {
  Player<Cloud> player;
  bool asked = false;
  player.on_cloud = [&](Cloud&) {
    int frames = 0;
    if (std::exchange(asked, true)) return;
    EXPECT_FALSE(player.driver.SetLocalFrame(2));
    EXPECT_TRUE(player.driver.GetLocalFileStatus(frames));
    EXPECT_TRUE(player.driver.SetLocalFrame(2));
  };
  ASSERT_EQ(player.Open(Sweeps(3)), 4);
  ASSERT_NE(player.Play(0), nullptr);
  EXPECT_EQ(Extent(player.Wait(2)), (Extents{5, 8, 112}));

  player.driver.Stop();
  player.on_cloud = [&](Cloud&) { player.driver.Stop(); };
  for (const int round : {1, 2, 3}) {
    SCOPED_TRACE(round);
    ASSERT_TRUE(player.driver.Start()) << "joins the thread that stopped itself";
    ASSERT_GE(player.WaitIndexed(), 4);
    ASSERT_NE(player.Play(1), nullptr);
  }
}

/// A calibration folder of any kind never fails a replay; one that does not load whole is not applied.
TEST_F(ReplayTest, CalibrationFoldersThatDoNotLoad) {
  DriverParam param = Sweeps(1);
  Random random(1);
  const TempFolder calibration;
  WriteCalibration(calibration, *PlausibleCalibration(random));
  calibration.Write("weight_again.csv", "w,1,2,3,4");
  std::filesystem::create_directory_symlink(".", folder_.Path("again"));
  for (const std::string& path : {calibration.Path(), folder_.Path("missing"), folder_.Path("sweeps.pcap"),
                                  folder_.Path(), std::string()}) {
    SCOPED_TRACE(path);
    param.calibration_param.calib_folder = path;
    Player<Cloud> player;
    ASSERT_EQ(player.Open(param), 2);
    const auto cloud = player.Play(0);
    ASSERT_NE(cloud, nullptr);
    EXPECT_TRUE(cloud->points[0].x > 0.3F && cloud->points[0].y == 0.0F)
        << "straight ahead, nothing filtered";
  }
}

TEST_F(ReplayTest, BadPacketsAreReportedAndTwoDriversNeverShareALine) {
  using SourceCloud = PointCloud<PointSource>;  // a cloud type of its own, since reports are counted by type
  const DriverParam param = ReplayParam(TS4B, folder_.Path("bad.pcap"));
  {
    CaptureFile file(param.input_param.pcap_path);
    for (int i = 0; i < 2000; ++i) file.Datagram(kRecordingPort, Bytes(1000, 1));
  }
  Player<SourceCloud> players[2];
  for (auto& player : players) {
    ASSERT_EQ(player.Open(param), 1) << "the first record is frame 0, be it refused";
  }
  EXPECT_EQ(players[0].errors, std::vector<int>{65});
  const size_t said = console_.Text().size();
  for (auto& player : players) ASSERT_TRUE(player.driver.SetLocalFrame(0));
  for (auto& player : players) ASSERT_NE(player.Wait(1), nullptr);
  const std::string line = "ProcessMsopPacket MSOP_LEN:1360 size:1000\n";
  EXPECT_EQ(Occurrences(console_.Text().substr(said), line), 4000);
  EXPECT_EQ(console_.Text().size(), said + 4000 * line.size());
}

}  // namespace
}  // namespace orva::test
