// SPDX-License-Identifier: Apache-2.0
//
// A live driver between a sensor and an application, over real sockets.
#include <pthread.h>

#include "online/kernel_drops.h"
#include "sim/calibration_server.h"
#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/player.h"
#include "support/process_hooks.h"
#include "support/recording.h"
#include "support/same.h"

namespace orva::test {
namespace {

using Cloud = PointCloud<PointSource>;

/// Of the models in turn, then of two at once: they must not mix.
TEST(LiveManager, DeliversEveryModelsFramesBitForBit) {
  const auto run = [](LidarType model) {
    SCOPED_TRACE(model);
    Random random(static_cast<unsigned>(model));
    std::vector<Packet> stream;
    for (unsigned i = 0; i < 60; ++i) {
      stream.push_back(PlausiblePacket(random, model));
      if (model == NV2) stream.back().Line(i % 5);
      if (model != NV2 && i % 5 == 4)
        stream.back().FrameEnd(i % 2 == 0 ? 31 : 5);  // blocks behind belong to it
    }
    const auto expected = ExpectedFrames<Cloud>(model, stream);
    ASSERT_GE(expected.size(), 11U);
    Player<Cloud> live;
    const DriverParam param = LiveParam(model);
    ASSERT_TRUE(live.Run(param));
    DataPort(param.input_param.msop_port).Send(stream);
    ASSERT_NE(live.Wait(expected.size()), nullptr);
    live.driver.Stop();
    ASSERT_EQ(live.Count(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
      ASSERT_NO_FATAL_FAILURE(ExpectSameCloud(*live.Wait(i + 1), *expected[i]));
      EXPECT_EQ(live.Wait(i + 1).use_count(), 2) << "the driver keeps no reference";
    }
  };
  run(NV2);
  run(TS4A);
  std::thread other([&] { run(TS6); });
  run(TS4B);
  other.join();
}

TEST(LiveManager, LossesOutlastTheKernelsCountOfDrops) {
  const struct {
    uint32_t at_stop, at_start, now, losses;
  } cases[] = {{0, 0, 7, 7},
               {10, 15, 20, 15},
               {4294967290, 4294967295, 3, 4294967294},
               {4294967290, 3, 5, 4294967292}};
  for (const auto& c : cases) {
    tevoro::lidar::KernelDrops drops;
    drops.ReceivingEnds(c.at_stop);
    drops.ReceivingBegins(c.at_start);
    EXPECT_EQ(drops.Losses(c.now), uint64_t{c.losses});
  }
}

TEST(LiveManager, InitFailsCleanlyAndInOrder) {
  const size_t descriptors = CountEntries("/proc/self/fd");
  for (int i = 0; i < 100; ++i) {
    const ConsoleCapture quiet, quiet_errors(STDERR_FILENO);
    DriverParam param = LiveParam(TS4B);
    const UdpPeer occupant;
    if (i % 4 == 1) param.lidar_type = static_cast<LidarType>(34);
    if (i % 4 >= 2) param.calib_from_lidar = true;
    if (i % 8 == 3) param.calibration_param.local_port = occupant.Port();
    if (i % 8 == 7) param.input_param.msop_port = occupant.Port();
    Player<Cloud> live;
    ASSERT_EQ(live.driver.InitDriver(param), i % 2 == 0) << i;
    if (i % 4 == 1) EXPECT_FALSE(WaitingBytes(param.input_param.msop_port)) << "no port was opened";
    if (i == 0) EXPECT_EQ(quiet.Text(), "type:33\nLoadCheckFolder failed!\n");
  }
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
}

TEST(LiveManager, DeliversImuSamplesOnlyWhereBothCallbacksAre) {
  for (const int mixture : {0, 1, 2, 3}) {
    SCOPED_TRACE(mixture);
    std::atomic<int> put{0}, got{0};
    std::function<void(std::shared_ptr<ImuMsg>)> put_imu;
    std::function<std::shared_ptr<ImuMsg>()> get_imu;
    if (mixture % 2 == 1) put_imu = [&](auto) { ++put; };
    if (mixture / 2 == 1) get_imu = [&] { return ++got, std::make_shared<ImuMsg>(); };
    Player<Cloud> live;
    live.driver.RegisterImuCallBack(put_imu, get_imu);
    const DriverParam param = LiveParam(TS6);
    ASSERT_TRUE(live.Run(param));
    DataPort data(param.input_param.msop_port);
    for (unsigned stamp = 1; stamp <= 3; ++stamp) data.Send(Packet(TS6).FrameEnd(63).Stamp(stamp));
    ASSERT_NE(live.Wait(3), nullptr);
    live.driver.Stop();
    EXPECT_EQ(got, mixture / 2 == 1 ? 4 : 0);
    EXPECT_EQ(put, mixture == 3 ? 3 : 0);
  }
}

TEST(LiveManager, StartsStopsAndEndsWhilePacketsPourIn) {
  const DriverParam param = LiveParam(TS4B);
  const std::jthread downpour([port = param.input_param.msop_port](const std::stop_token& ending) {
    const UdpPeer peer;
    while (!ending.stop_requested()) peer.Send(port, Packet(TS4B).FrameEnd(31).data(), 1360);
  });
  const size_t threads = Threads();
  {
    Player<Cloud> live;
    ASSERT_TRUE(live.driver.InitDriver(param));
    live.driver.Stop();
    for (int i = 0; i < 500; ++i) {
      ASSERT_TRUE(live.driver.Start());
      if (i % 20 == 0) {
        ASSERT_TRUE(live.driver.Start());
        EXPECT_TRUE(Eventually([&] { return Threads() == threads + 2; }));
        ASSERT_NE(live.Wait(live.Count() + 1), nullptr);
      }
      live.driver.Stop();
      EXPECT_TRUE(Eventually([&] { return Threads() == threads; }));
    }
    ASSERT_TRUE(live.driver.Start());
    ASSERT_NE(live.Wait(live.Count() + 1), nullptr);
  }  // destroyed in full flow
  EXPECT_TRUE(Eventually([&] { return Threads() == threads; }));
}

TEST(LiveManager, StopsFromInsideACallback) {
  const size_t threads = Threads();
  Player<Cloud> live;
  bool restarted_inside = false;
  live.on_cloud = [&](Cloud&) {
    live.driver.Stop();
    if (live.Count() == 2) restarted_inside = live.driver.Start();  // a thread cannot succeed itself
  };
  const DriverParam param = LiveParam(TS4B);
  ASSERT_TRUE(live.driver.InitDriver(param));
  DataPort data(param.input_param.msop_port);
  for (size_t i = 1; i <= 3; ++i) {
    ASSERT_TRUE(live.driver.Start());  // joins those that the callback ended
    data.Send(Packet(TS4B).FrameEnd(31));
    ASSERT_NE(live.Wait(i), nullptr);
  }
  live.driver.Stop();
  EXPECT_FALSE(restarted_inside);
  EXPECT_TRUE(Eventually([&] { return Threads() == threads; }));
  EXPECT_TRUE(live.driver.Start());
}

TEST(LiveManager, StartFailsWhenTheSystemRefusesAThread) {
  Player<Cloud> live;
  const DriverParam param = LiveParam(TS4B);
  ASSERT_TRUE(live.driver.InitDriver(param));
  pthread_attr_t ordinary, excessive;
  pthread_getattr_default_np(&ordinary);
  pthread_attr_init(&excessive);
  pthread_attr_setstacksize(&excessive, size_t{1} << 50);
  pthread_setattr_default_np(&excessive);
  const bool started = live.driver.Start();
  pthread_setattr_default_np(&ordinary);
  EXPECT_FALSE(started);
  ASSERT_TRUE(live.driver.Start());
  DataPort(param.input_param.msop_port).Send(Packet(TS4B).FrameEnd(31));
  EXPECT_NE(live.Wait(1), nullptr);
}

TEST(LiveManager, AllocatesNothingPerPacket) {
  for (const LidarType model : {NV2, TS4A, TS4B, TS6}) {
    SCOPED_TRACE(model);
    const auto cloud = std::make_shared<Cloud>();
    cloud->points.reserve(200'000);
    std::atomic<int> packets{0};
    OrvaDriver<Cloud> driver;
    driver.RegisterPointCloudCallBack([](const std::shared_ptr<Cloud>& full) { full->points.clear(); },
                                      [&] { return cloud; });
    driver.RegisterPacketCallBack([&](const uint8_t*, size_t, double) { ++packets; });
    const DriverParam param = LiveParam(model);
    ASSERT_TRUE(driver.InitDriver(param) && driver.Start());
    const UdpPeer sensor;
    Packet packet(model);
    if (packet.layout().column != 0) packet.FrameEnd(31);
    const auto stream = [&](int bursts) {
      for (int i = 0; i < bursts; ++i) {
        const int before = packets;
        for (int k = 0; k < 40; ++k) {
          if (model == NV2) packet.Line(k % 2 == 0 ? 0 : 1);  // every other packet ends a frame
          sensor.Send(param.input_param.msop_port, packet.data(), packet.size());
        }
        while (packets < before + 40) std::this_thread::yield();
      }
    };
    stream(20);  // until enough buffers circulate
    const unsigned long before = AllocationCount();
    stream(50);
    // The highest backlog may still have risen once or twice: a buffer and its bytes each.
    EXPECT_LT(AllocationCount() - before, 200U) << "in 2000 packets";
    driver.Stop();
  }
}

/// However the sensor answers its calibration requests, frames go on; and a download that completes reaches
/// the decoder.
TEST(LiveManager, StreamsWhateverTheCommandPortDoes) {
  Random random(7);
  const auto sent = PlausibleCalibration(random);
  const std::string stream = SectionStream(*sent);
  const std::vector<Packet> frame = Frame(random, TS4B, 3, 31);
  const auto calibrated = ExpectedFrames<Cloud>(TS4B, frame, sent.get())[0];
  const sim::ReplyFaults cases[] = {
      {}, {.silent = true}, {.garbled = 1.0}, {.claimed_length = 0xFFFFFFFF}, {.claimed_length = 3}};
  for (const sim::ReplyFaults& faults : cases) {
    const bool completes = &faults == cases;
    SCOPED_TRACE(&faults - cases);
    const ConsoleCapture quiet;
    const sim::CalibrationServer command({stream.begin(), stream.end()}, kLoopback, 0, faults);
    DriverParam param = LiveParam(TS4B);
    param.calib_from_lidar = true;
    param.calibration_param = CommandParam(command.Port());
    Player<Cloud> live;
    ASSERT_TRUE(live.Run(param));
    DataPort data(param.input_param.msop_port);
    bool applied = false;
    for (size_t i = 1; i < 20 || (completes && !applied); ++i) {
      data.Send(frame);
      const auto cloud = live.Wait(i);
      ASSERT_NE(cloud, nullptr);
      ASSERT_EQ(cloud->points.size(), calibrated->points.size());
      applied = std::equal(calibrated->points.begin(), calibrated->points.end(), cloud->points.begin(),
                           [](const PointSource& p, const PointSource& q) { return Same(p, q); });
    }
    EXPECT_EQ(applied, completes);
    live.driver.Stop();
    EXPECT_TRUE(live.driver.Start());  // after a finished or a broken-off download
  }
}

}  // namespace
}  // namespace orva::test
