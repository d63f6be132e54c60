// SPDX-License-Identifier: Apache-2.0
//
// A live driver between a sensor and an application, over real sockets.
#include <pthread.h>

#include "support/calibrations.h"
#include "support/fake_sensor.h"
#include "support/process_hooks.h"

namespace orva::test {
namespace {

using tevoro::lidar::OnlineManager;
using Cloud = PointCloud<PointSource>;

void Append(std::vector<Packet>& stream, const std::vector<Packet>& more) {
  for (const Packet& packet : more) stream.push_back(packet);
}

/// Of the models in turn, then of two at once: they must not mix.
TEST(LiveManager, DeliversEveryModelsFramesBitForBit) {
  const auto run = [](LidarType model) {
    SCOPED_TRACE(model);
    Random random(static_cast<unsigned>(model));
    std::vector<Packet> stream;
    for (int i = 0; i < 12; ++i) {
      if (model == NV2) {
        for (unsigned line = 0; line < 5; ++line) stream.push_back(PlausiblePacket(random, model).Line(line));
      } else {
        Append(stream, Frame(random, model, 30, i % 2 == 0 ? 31 : 5));  // blocks after a marker belong to it
      }
    }
    const auto expected = ExpectedFrames<Cloud>(model, stream);
    ASSERT_GE(expected.size(), 11U);
    LiveDriver<Cloud> live;
    const DriverParam param = LiveParam(model);
    ASSERT_TRUE(live.manager.Init(param) && live.manager.Start());
    DataPort(param.input_param.msop_port).Send(stream);
    ASSERT_TRUE(live.frames.WaitFor(expected.size()));
    live.manager.Stop();
    ASSERT_EQ(live.frames.Count(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
      ASSERT_NO_FATAL_FAILURE(ExpectSameCloud(*live.frames.At(i), *expected[i]));
      EXPECT_EQ(live.frames.At(i).use_count(), 2);  // the driver keeps no reference
    }
  };
  run(NV2);
  run(TS4A);
  std::thread other([&] { run(TS6); });
  run(TS4B);
  other.join();
}

TEST(LiveManager, ReportsBadPacketsAndGoesOn) {
  const ConsoleCapture console;
  LiveDriver<Cloud> live;
  const DriverParam param = LiveParam(TS4B);
  ASSERT_TRUE(live.manager.Init(param) && live.manager.Start());
  AdvanceClock(10);
  Random random(2);
  DataPort data(param.input_param.msop_port);
  const std::string noise(3000, 'x');
  for (const size_t length : {3000U, 3000U, 1360U, 1360U}) data.SendBytes(noise.data(), length);
  const std::vector<Packet> frame = Frame(random, TS4B, 3, 31);
  data.Send(frame);
  ASSERT_TRUE(live.frames.WaitFor(1));
  ExpectSameCloud(*live.frames.At(0), *ExpectedFrames<Cloud>(TS4B, frame)[0]);
  ASSERT_EQ(live.errors.Count(), 2U);
  EXPECT_EQ(live.errors.At(0)->error_code, ERROR_MSOP_LENGTH);
  EXPECT_EQ(live.errors.At(1)->error_code, ERROR_MSOP_ID);
  EXPECT_NE(console.Text().find("ProcessMsopPacket MSOP_LEN:1360 size:1546\n"), std::string::npos);
}

TEST(LiveManager, InitFailsCleanlyAndInOrder) {
  const size_t descriptors = OpenDescriptors();
  for (int i = 0; i < 100; ++i) {
    const ConsoleCapture quiet, quiet_errors(STDERR_FILENO);
    DriverParam param = LiveParam(TS4B);
    const UdpPeer occupant;
    if (i % 4 == 1) param.lidar_type = static_cast<LidarType>(34);
    if (i % 4 >= 2) param.calib_from_lidar = true;
    if (i % 8 == 3) param.calibration_param.local_port = occupant.Port();
    if (i % 8 == 7) param.input_param.msop_port = occupant.Port();
    LiveDriver<Cloud> live;
    ASSERT_EQ(live.manager.Init(param), i % 2 == 0) << i;
    if (i % 4 == 1) EXPECT_FALSE(LookUp(param.input_param.msop_port).found);
    if (i == 0) EXPECT_EQ(quiet.Text(), "type:33\nLoadCheckFolder failed!\n");
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

/// Every mixture of callbacks that an application may leave out.
TEST(LiveManager, TakesEveryMixtureOfCallbacks) {
  Random random(3);
  for (unsigned mixture = 0; mixture < 32; ++mixture) {
    SCOPED_TRACE(mixture);
    const auto has = [mixture](unsigned bit) { return (mixture >> bit & 1U) != 0; };
    const ConsoleCapture console;
    std::atomic<int> put{0}, got{0}, imu_put{0}, imu_got{0};
    std::function<void(std::shared_ptr<Cloud>)> put_cloud;
    std::function<std::shared_ptr<Cloud>()> get_cloud;
    std::function<void(std::shared_ptr<ImuMsg>)> put_imu;
    std::function<std::shared_ptr<ImuMsg>()> get_imu;
    if (has(0)) put_cloud = [&](auto cloud) { put += cloud != nullptr; };
    if (has(1)) get_cloud = [&] { return ++got % 2 == 1 ? std::make_shared<Cloud>() : nullptr; };
    if (has(2)) put_imu = [&](auto sample) { imu_put += sample != nullptr; };
    if (has(3)) get_imu = [&] { return ++imu_got, std::make_shared<ImuMsg>(); };
    OnlineManager<Cloud> manager;
    manager.RegisterPointCloudCallBack(put_cloud, get_cloud);
    manager.RegisterImuCallBack(put_imu, get_imu);
    if (has(4)) manager.RegisterExceptionCallBack([](const Error&) {});
    const DriverParam param = LiveParam(TS6);
    ASSERT_TRUE(manager.Init(param) && manager.Start());
    DataPort data(param.input_param.msop_port);
    data.SendBytes("bad", 3);
    for (unsigned i = 0; i < 3; ++i) data.Send(PlausiblePacket(random, TS6).FrameEnd(63).Stamp(i + 1));

    const auto lines = [&] {
      return Occurrences(console.Text(),
                         "\033[1m\033[33mError:Get point cloud call back is nullptr!\033[0m\n");
    };
    // A container is asked for at Init and at each of three frames.
    ASSERT_TRUE(Eventually([&] { return has(1) ? got == 4 : lines() == 4; }));
    manager.Stop();
    EXPECT_EQ(lines(), has(1) ? 0 : 4);
    EXPECT_EQ(put, has(0) && has(1) ? 2 : 0);  // the second cloud was null
    EXPECT_EQ(imu_got, has(3) ? 4 : 0);
    EXPECT_EQ(imu_put, has(2) && has(3) ? 3 : 0);
  }
}

TEST(LiveManager, StartsStopsAndEndsWhilePacketsPourIn) {
  const DriverParam param = LiveParam(TS4B);
  const std::jthread downpour([port = param.input_param.msop_port](const std::stop_token& ending) {
    const UdpPeer peer;
    while (!ending.stop_requested()) {
      peer.Send(port, Packet(TS4B).FrameEnd(31).data(), 1360);
    }
  });
  const size_t threads = Threads();
  {
    LiveDriver<Cloud> live;
    ASSERT_TRUE(live.manager.Init(param));
    live.manager.Stop();
    for (int i = 0; i < 1000; ++i) {
      ASSERT_TRUE(live.manager.Start());
      if (i % 20 == 0) {
        ASSERT_TRUE(live.manager.Start());
        EXPECT_TRUE(Eventually([&] { return Threads() == threads + 2; }));
        ASSERT_TRUE(live.frames.WaitFor(live.frames.Count() + 1));
      }
      live.manager.Stop();
      EXPECT_TRUE(Eventually([&] { return Threads() == threads; }));
    }
    ASSERT_TRUE(live.manager.Start());
    ASSERT_TRUE(live.frames.WaitFor(live.frames.Count() + 1));
  }  // destroyed in full flow
  EXPECT_TRUE(Eventually([&] { return Threads() == threads; }));
}

TEST(LiveManager, StopsFromInsideACallback) {
  const size_t threads = Threads();
  OnlineManager<Cloud> manager;
  std::atomic<int> frames{0};
  std::atomic<bool> restarted_inside{false};
  manager.RegisterPointCloudCallBack(
      [&](std::shared_ptr<Cloud>) {
        manager.Stop();
        if (frames == 2) restarted_inside = manager.Start();  // a thread cannot succeed itself
        ++frames;
      },
      [] { return std::make_shared<Cloud>(); });
  const DriverParam param = LiveParam(TS4B);
  ASSERT_TRUE(manager.Init(param));
  DataPort data(param.input_param.msop_port);
  for (int i = 1; i <= 3; ++i) {
    ASSERT_TRUE(manager.Start());  // joins those that the callback ended
    data.Send(Packet(TS4B).FrameEnd(31));
    ASSERT_TRUE(Eventually([&] { return frames == i; }));
  }
  EXPECT_FALSE(restarted_inside);
  manager.Stop();
  EXPECT_TRUE(Eventually([&] { return Threads() == threads; }));
  ASSERT_TRUE(manager.Start());
  manager.Stop();
}

TEST(LiveManager, StartFailsWhenTheSystemRefusesAThread) {
  LiveDriver<Cloud> live;
  const DriverParam param = LiveParam(TS4B);
  ASSERT_TRUE(live.manager.Init(param));
  pthread_attr_t ordinary, excessive;
  pthread_getattr_default_np(&ordinary);
  pthread_attr_init(&excessive);
  pthread_attr_setstacksize(&excessive, size_t{1} << 50);
  pthread_setattr_default_np(&excessive);
  const bool started = live.manager.Start();
  pthread_setattr_default_np(&ordinary);
  EXPECT_FALSE(started);
  ASSERT_TRUE(live.manager.Start());
  DataPort(param.input_param.msop_port).Send(Packet(TS4B).FrameEnd(31));
  EXPECT_TRUE(live.frames.WaitFor(1));
}

TEST(LiveManager, AllocatesNothingPerPacket) {
  auto cloud = std::make_shared<Cloud>();
  cloud->points.reserve(200'000);
  std::atomic<int> frames{0};
  OnlineManager<Cloud> manager;
  manager.RegisterPointCloudCallBack(
      [&](std::shared_ptr<Cloud> full) {
        full->points.clear();
        ++frames;
      },
      [&] { return cloud; });
  const DriverParam param = LiveParam(TS4B);
  ASSERT_TRUE(manager.Init(param) && manager.Start());
  const UdpPeer sensor;
  Packet packet(TS4B);
  packet.FrameEnd(31);
  const auto stream = [&](int bursts) {
    for (int i = 0; i < bursts; ++i) {
      const int before = frames;
      for (int k = 0; k < 40; ++k) sensor.Send(param.input_param.msop_port, packet.data(), packet.size());
      while (frames < before + 40) std::this_thread::yield();
    }
  };
  stream(20);  // until enough buffers circulate
  const unsigned long before = TotalAllocationCount();
  stream(50);
  // The highest backlog may still have risen once or twice: a buffer and its bytes each.
  EXPECT_LT(TotalAllocationCount() - before, 200U) << "in 2000 packets";
  manager.Stop();
}

/// However the sensor answers its calibration requests, frames go on; and a download that completes reaches
/// the decoder.
TEST(LiveManager, StreamsWhateverTheCommandPortDoes) {
  Random random(7);
  const auto sent = PlausibleCalibration(random);
  const std::string stream = SectionStream(*sent);
  const auto obedient = CommandPort::Obedient(stream);
  using Answers = std::vector<std::string>;
  struct Case {
    const char* name;
    CommandPort::Script script;
    bool completes;
  } cases[] = {
      {"obedient", obedient, true},
      {"silent", [](const CalibrationRequest&, size_t) { return Answers{}; }, false},
      {"garbage", [](const CalibrationRequest&, size_t) { return Answers{"?"}; }, false},
      {"hostile lengths",
       [](const CalibrationRequest&, size_t n) {
         std::string reply = CalibrationReply(0, std::string(1000, 'A'));
         return Answers{reply.replace(4, 4, LittleEndian32(n % 2 == 0 ? 0xFFFFFFFF : 3))};
       },
       false},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    const ConsoleCapture quiet;
    CommandPort port(c.script);
    DriverParam param = LiveParam(TS4B);
    param.calib_from_lidar = true;
    param.calibration_param = port.Param();
    LiveDriver<Cloud> live;
    ASSERT_TRUE(live.manager.Init(param) && live.manager.Start());

    DataPort data(param.input_param.msop_port);
    const std::vector<Packet> frame = Frame(random, TS4B, 3, 31);
    const auto calibrated = ExpectedFrames<Cloud>(TS4B, frame, sent.get())[0];
    const auto plain = ExpectedFrames<Cloud>(TS4B, frame)[0];
    bool applied = false;
    for (size_t i = 1; i < 20 || (c.completes && !applied); ++i) {
      data.Send(frame);
      ASSERT_TRUE(live.frames.WaitFor(i));
      applied = std::equal(calibrated->points.begin(), calibrated->points.end(),
                           live.frames.Last()->points.begin(), live.frames.Last()->points.end(),
                           [](const PointSource& p, const PointSource& q) { return Same(p, q); });
      ASSERT_TRUE(applied || live.frames.Last()->points.size() == plain->points.size());
    }
    EXPECT_EQ(applied, c.completes);
    live.manager.Stop();
    EXPECT_TRUE(live.manager.Start());  // after a finished or a broken-off download
  }
}

}  // namespace
}  // namespace orva::test
