// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/console_capture.h"
#include "support/player.h"
#include "support/recording.h"
#include "support/temp_folder.h"

namespace orva::test {
namespace {

using Cloud = PointCloud<PointTime>;

constexpr const char* kWrongLidar =
    "\033[1m\033[31mWrong LiDAR Type. Please check your LiDAR Version! \033[0m\n";
constexpr const char* kWrongInput =
    "\033[1m\033[31mWrong Input Type. Please check your LiDAR Version! \033[0m\n";

void ExpectNoManager(OrvaDriver<Cloud>& driver) {
  int frames = 4711;
  EXPECT_FALSE(driver.Start());
  EXPECT_FALSE(driver.GetLocalFileStatus(frames));
  EXPECT_EQ(frames, 4711);
  EXPECT_FALSE(driver.SetLocalFrame(0));
  driver.Stop();
}

TEST(Facade, RefusesWrongConfigurationsAndForgetsTheOldOne) {
  const TempFolder folder;
  const std::string capture = folder.Path("sweeps.pcap");
  Random random(2);
  WriteRecording(capture, FiveSweeps(random, TS4B));
  const std::string missing = folder.Path("missing.pcap");
  struct Case {
    int input, lidar;
    std::string path, said;
  };
  const Case cases[] = {
      {1, 2, capture, "type:2\n" + std::string(kWrongLidar)},
      {0, 17, capture, "type:17\n" + std::string(kWrongLidar)},
      {2, 34, capture, "type:34\n" + std::string(kWrongLidar)},
      {2, 33, capture, "type:33\n" + std::string(kWrongInput)},
      {1, 33, missing, "type:33\npcap_file:" + missing + "\n"},
      {1, 16, folder.Write("garbage", "no capture"), "type:16\npcap_file:" + folder.Path("garbage") + "\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.said);
    const ConsoleCapture all;
    Player<Cloud> player;
    ExpectNoManager(player.driver);
    ASSERT_TRUE(player.driver.InitDriver(ReplayParam(TS4B, capture)));
    ASSERT_TRUE(player.driver.Start());
    ASSERT_GT(player.WaitIndexed(), 0);
    DriverParam param = ReplayParam(static_cast<LidarType>(c.lidar), c.path);
    param.input_type = static_cast<InputType>(c.input);
    {
      const ConsoleCapture console;
      EXPECT_FALSE(player.driver.InitDriver(param));
      EXPECT_EQ(console.Text(), c.said);
    }
    ExpectNoManager(player.driver);
    ASSERT_TRUE(player.driver.InitDriver(ReplayParam(TS4B, capture))) << "a failure leaves nothing behind";
    ASSERT_TRUE(player.driver.Start());
    ASSERT_GT(player.WaitIndexed(), 0);
    EXPECT_NE(player.Play(0), nullptr);
  }
}

TEST(Facade, DestructionAndInitEndARunningPlay) {
  const TempFolder folder;
  Random random(2);
  const DriverParam param = ReplayParam(TS4B, folder.Path("sweeps.pcap"));
  WriteRecording(param.input_param.pcap_path, FiveSweeps(random, TS4B));
  const ConsoleCapture quiet;
  for (int i = 0; i < 20; ++i) {
    Player<Cloud> player;
    ASSERT_TRUE(player.driver.InitDriver(param));
    ASSERT_TRUE(player.driver.Start());
    if (i % 2 == 0) ASSERT_GT(player.WaitIndexed(), 0);
    player.driver.SetLocalFrame(1);
    if (i % 4 < 2) ASSERT_TRUE(player.driver.InitDriver(param)) << "releases the running manager";
  }
}

TEST(Facade, AnExceptionOfTheFirstGetCallbackReachesTheCaller) {
  const TempFolder folder;
  Random random(2);
  const DriverParam param = ReplayParam(TS4B, folder.Path("sweeps.pcap"));
  WriteRecording(param.input_param.pcap_path, FiveSweeps(random, TS4B));
  const ConsoleCapture quiet;
  bool fails = true;
  Player<Cloud> player([&fails] {
    if (fails) throw std::runtime_error("no memory for clouds");
    return std::make_shared<Cloud>();
  });
  EXPECT_THROW(player.driver.InitDriver(param), std::runtime_error);
  fails = false;
  ASSERT_TRUE(player.driver.InitDriver(param));
  ASSERT_TRUE(player.driver.Start());
  ASSERT_GT(player.WaitIndexed(), 0);
  EXPECT_NE(player.Play(0), nullptr);
}

}  // namespace
}  // namespace orva::test
