// SPDX-License-Identifier: Apache-2.0
//
// The same packets live and from a recording, through the public API.
#include "support/fake_sensor.h"
#include "support/player.h"
#include "support/recording.h"
#include "support/temp_folder.h"

namespace orva::test {
namespace {

using Cloud = PointCloud<PointSource>;
using Points = std::vector<PointSource>;

constexpr size_t kFrames = 4;
constexpr size_t kBlocks = 32;

/// Both kinds of frames of one stream whose markers all stand in block `marker`.
struct TwoWays {
  std::vector<std::shared_ptr<Cloud>> live, replay;

  explicit TwoWays(size_t marker) {
    Random random(static_cast<unsigned>(marker));
    std::vector<Packet> stream;
    for (size_t i = 0; i < kFrames; ++i) {
      for (const Packet& packet : Frame(random, TS4B, 40, marker)) stream.push_back(packet);
    }
    const TempFolder folder;
    WriteRecording(folder.Path("stream.pcap"), stream);
    Player<Cloud> recording, sensor;
    EXPECT_EQ(recording.Open(ReplayParam(TS4B, folder.Path("stream.pcap"))), int{kFrames} + 1);

    const DriverParam param = LiveParam(TS4B);
    EXPECT_TRUE(sensor.driver.InitDriver(param));
    EXPECT_TRUE(sensor.driver.Start());
    DataPort(param.input_param.msop_port).Send(stream);
    for (size_t i = 0; i < kFrames; ++i) {
      replay.push_back(recording.Play(static_cast<int>(i)));
      live.push_back(sensor.Wait(i + 1));
    }
  }
  bool Complete() const {
    const auto there = [](const std::shared_ptr<Cloud>& cloud) { return cloud != nullptr; };
    return std::all_of(live.begin(), live.end(), there) && std::all_of(replay.begin(), replay.end(), there);
  }
};

TEST(LiveAndReplay, AreEqualWithTheMarkerInTheLastBlock) {
  const TwoWays frames(kBlocks - 1);
  ASSERT_TRUE(frames.Complete());
  for (size_t i = 0; i < kFrames; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(frames.live[i]->points.size(), 40 * kBlocks);
    ASSERT_NO_FATAL_FAILURE(ExpectSameCloud(*frames.live[i], *frames.replay[i]));
  }
}

TEST(LiveAndReplay, ShareBlocksBehindAMarkerDifferently) {
  const TwoWays frames(5);
  ASSERT_TRUE(frames.Complete());
  constexpr ptrdiff_t kBehind = kBlocks - 6;
  ExpectSamePoints(frames.live[0]->points, frames.replay[0]->points);
  for (size_t i = 1; i < kFrames; ++i) {
    SCOPED_TRACE(i);
    // Live gives them to the ending frame alone, replay once more to the next.
    const Points &before = frames.live[i - 1]->points, &replay = frames.replay[i]->points;
    Points want(before.end() - kBehind, before.end());
    want.insert(want.end(), frames.live[i]->points.begin(), frames.live[i]->points.end());
    ASSERT_NO_FATAL_FAILURE(ExpectSamePoints(replay, want));
  }
}

}  // namespace
}  // namespace orva::test
