// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/console_capture.h"
#include "support/player.h"
#include "support/recording.h"
#include "support/same.h"
#include "support/temp_folder.h"

namespace orva::test {
namespace {

using Cloud = PointCloud<PointTime>;

constexpr const char* kWrongLidar =
    "\033[1m\033[31mWrong LiDAR Type. Please check your LiDAR Version! \033[0m\n";
constexpr const char* kWrongInput =
    "\033[1m\033[31mWrong Input Type. Please check your LiDAR Version! \033[0m\n";

class Facade : public testing::Test {
 protected:
  Facade() {
    Random random(2);
    WriteRecording(capture_, FiveSweeps(random, TS4B));
  }
  const TempFolder folder_;
  const std::string capture_ = folder_.Path("sweeps.pcap");
  const DriverParam param_ = ReplayParam(TS4B, capture_);
  const ConsoleCapture quiet_;
};

void ExpectNoManager(OrvaDriver<Cloud>& driver) {
  int frames = 4711;
  EXPECT_FALSE(driver.Start() || driver.GetLocalFileStatus(frames) || driver.SetLocalFrame(0));
  EXPECT_EQ(frames, 4711);
  driver.Stop();
}

TEST_F(Facade, RefusesWrongConfigurationsAndForgetsTheOldOne) {
  const std::string missing = folder_.Path("missing.pcap"), garbage = folder_.Write("garbage", "no capture");
  const struct {
    int input, lidar;
    std::string path, said;
  } cases[] = {
      {1, 2, capture_, "type:2\n" + std::string(kWrongLidar)},
      {0, 17, capture_, "type:17\n" + std::string(kWrongLidar)},
      {2, 34, capture_, "type:34\n" + std::string(kWrongLidar)},
      {2, 33, capture_, "type:33\n" + std::string(kWrongInput)},
      {1, 33, missing, "type:33\npcap_file:" + missing + "\n"},
      {1, 16, garbage, "type:16\npcap_file:" + garbage + "\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.said);
    Player<Cloud> player;
    ExpectNoManager(player.driver);
    ASSERT_GT(player.Open(param_), 0);
    DriverParam param = ReplayParam(static_cast<LidarType>(c.lidar), c.path);
    param.input_type = static_cast<InputType>(c.input);
    {
      const ConsoleCapture console;
      EXPECT_FALSE(player.driver.InitDriver(param));
      EXPECT_EQ(console.Text(), c.said);
    }
    ExpectNoManager(player.driver);
    ASSERT_GT(player.Open(param_), 0);
    EXPECT_NE(player.Play(0), nullptr);
  }
}

TEST_F(Facade, ConsoleLinesGoToTheSinkUntilItIsTakenAway) {
  const ConsoleCapture out(STDOUT_FILENO), error(STDERR_FILENO);
  std::vector<std::pair<std::string, bool>> lines;
  Player<Cloud> player;
  DriverParam live;
  live.lidar_type = TS4B;
  live.input_param.host_ip = "192.0.2.1";  // no address of any machine
  SetOrvaConsole([&lines](const char* line, bool is_error) { lines.emplace_back(line, is_error); });
  EXPECT_FALSE(player.driver.InitDriver(live));
  SetOrvaConsole(nullptr);
  EXPECT_FALSE(player.driver.InitDriver(live));
  const std::pair<std::string, bool> bind{"bind failed: Cannot assign requested address", true};
  EXPECT_EQ(lines, (std::vector<std::pair<std::string, bool>>{
                       {"type:33", false}, {"LoadCheckFolder failed!", false}, bind}));
  EXPECT_EQ(out.Text(), "type:33\nLoadCheckFolder failed!\n");
  EXPECT_EQ(error.Text(), bind.first + "\n");
}

TEST_F(Facade, DestructionAndInitEndARunningPlay) {
  for (int i = 0; i < 20; ++i) {
    Player<Cloud> player;
    ASSERT_TRUE(player.Run(param_));
    if (i % 2 == 0) ASSERT_GT(player.WaitIndexed(), 0);
    player.driver.SetLocalFrame(1);
    if (i % 4 < 2) ASSERT_TRUE(player.driver.InitDriver(param_)) << "releases the running manager";
  }
}

// Only where the library recognises the application's own copy of the base class; this file is built with and
// without run-time type information.
TEST_F(Facade, GivesAFreshCloudItsRoomAtOnce) {
  Player<Cloud> player;
  ASSERT_GT(player.Open(param_), 0);
  ASSERT_NE(player.Play(1), nullptr);
  const auto again = player.Play(1);
  ASSERT_NE(again, nullptr);
  ASSERT_GT(again->points.size(), 100U);
  EXPECT_EQ(again->points.capacity(), again->points.size());
}

/// An application's own, which keeps its points elsewhere.
struct OwnCloud : Cloud {
  void PushPoint(const PointTime& point) override { own.push_back(point); }
  std::vector<PointTime> own;
};

TEST_F(Facade, EveryPointGoesThroughTheCloudsOwnPushPoint) {
  unsigned made = 0;
  Player<Cloud> player(
      [&made] { return made++ % 2 == 0 ? std::make_shared<OwnCloud>() : std::make_shared<Cloud>(); });
  ASSERT_GT(player.Open(param_), 1);
  for (int round = 0; round < 2; ++round) {  // the two take turns
    const auto derived = std::static_pointer_cast<OwnCloud>(player.Play(1));
    const auto plain = player.Play(1);
    ASSERT_TRUE(derived != nullptr && plain != nullptr);
    EXPECT_TRUE(derived->points.empty());
    ASSERT_GT(plain->points.size(), 100U);
    ExpectSamePoints(derived->own, plain->points);
  }
}

TEST_F(Facade, AnExceptionOfTheFirstGetCallbackReachesTheCaller) {
  bool fails = true;
  Player<Cloud> player([&fails] {
    if (fails) throw std::runtime_error("no memory for clouds");
    return std::make_shared<Cloud>();
  });
  EXPECT_THROW(player.driver.InitDriver(param_), std::runtime_error);
  fails = false;
  ASSERT_GT(player.Open(param_), 0);
  EXPECT_NE(player.Play(0), nullptr);
}

}  // namespace
}  // namespace orva::test
