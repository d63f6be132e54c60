// SPDX-License-Identifier: Apache-2.0
//
// A live driver between a sensor and an application, over real sockets.
#include <pthread.h>

#include <latch>

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

template <typename PC>
void ExpectSameCloud(const PC& got, const PC& want) {
  ASSERT_NO_FATAL_FAILURE(ExpectSamePoints(got.points, want.points));
  EXPECT_TRUE(Same(got.timestamp, want.timestamp));
  EXPECT_EQ(got.status_word, want.status_word);
  EXPECT_EQ(got.status_byte, want.status_byte);
  EXPECT_TRUE(Same(got.temperature_a, want.temperature_a));
  EXPECT_TRUE(Same(got.temperature_b, want.temperature_b));
}

TEST(LiveManager, DeliversEveryModelsFramesBitForBit) {
  for (const LidarType model : {NV2, TS4A, TS4B, TS6}) {
    SCOPED_TRACE(model);
    Random random(static_cast<unsigned>(model));
    std::vector<Packet> stream;
    for (int i = 0; i < 4; ++i) {
      if (model == NV2) {
        for (unsigned line = 0; line < 5; ++line) stream.push_back(PlausiblePacket(random, model).Line(line));
      } else {
        Append(stream, Frame(random, model, 30, i % 2 == 0 ? 31 : 5));  // blocks after a marker belong to it
      }
    }
    const auto expected = ExpectedFrames<Cloud>(model, stream);
    ASSERT_GE(expected.size(), 3U);

    LiveDriver<Cloud> live;
    const DriverParam param = LiveParam(model);
    ASSERT_TRUE(live.manager.Init(param));
    ASSERT_TRUE(live.manager.Start());
    DataPort(param.input_param.msop_port).Send(stream);
    ASSERT_TRUE(live.frames.WaitFor(expected.size()));
    live.manager.Stop();
    ASSERT_EQ(live.frames.Count(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
      SCOPED_TRACE(i);
      ASSERT_NO_FATAL_FAILURE(ExpectSameCloud(*live.frames.At(i), *expected[i]));
      EXPECT_EQ(live.frames.At(i).use_count(), 2);  // the driver keeps no reference
    }
  }
}

TEST(LiveManager, DeliversImuSamplesOnceEach) {
  LiveDriver<Cloud> live;
  const DriverParam param = LiveParam(TS6);
  ASSERT_TRUE(live.manager.Init(param));
  ASSERT_TRUE(live.manager.Start());
  Random random(1);
  DataPort data(param.input_param.msop_port);
  for (unsigned i = 0; i < 40; ++i) {
    Packet packet = PlausiblePacket(random, TS6);
    packet.Utc(250'000, 2000, 1, 1, 0, 0, i).Stamp(100 + i / 4);  // four packets show the same sample
    packet.Imu({2048, -4096, 1024, 576, -1152, 288});
    if (i == 39) packet.FrameEnd(63);
    data.Send(packet);
  }
  ASSERT_TRUE(live.frames.WaitFor(1));
  live.manager.Stop();
  ASSERT_EQ(live.imu.Count(), 10U);
  for (size_t i = 0; i < 10; ++i) {
    const ImuMsg& sample = *live.imu.At(i);
    EXPECT_TRUE(sample.valid);
    EXPECT_EQ(sample.timestamp, 946684800.25 + 4 * static_cast<double>(i));
    EXPECT_NEAR(sample.linear_acceleration_x, -9.80665 / 2, 1e-4);
    EXPECT_NEAR(sample.linear_acceleration_y, 9.80665, 1e-4);
    EXPECT_NEAR(sample.linear_acceleration_z, 9.80665 * 2, 1e-4);
    EXPECT_NEAR(sample.angular_velocity_x, -288 * 0.03125 * M_PI / 180, 1e-5);
    EXPECT_NEAR(sample.angular_velocity_y, 576 * 0.03125 * M_PI / 180, 1e-5);
    EXPECT_NEAR(sample.angular_velocity_z, 1152 * 0.03125 * M_PI / 180, 1e-5);
  }
}

TEST(LiveManager, ReportsBadPacketsAndGoesOn) {
  const ConsoleCapture console;
  LiveDriver<Cloud> live;
  const DriverParam param = LiveParam(TS4B);
  ASSERT_TRUE(live.manager.Init(param));
  ASSERT_TRUE(live.manager.Start());
  AdvanceClock(10);
  Random random(2);
  DataPort data(param.input_param.msop_port);
  const std::string long_one(3000, 'x'), alien(1360, 'x');
  for (int i = 0; i < 3; ++i) data.SendBytes(long_one.data(), long_one.size());
  for (int i = 0; i < 3; ++i) data.SendBytes(alien.data(), alien.size());
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
    if (i % 4 == 1) {
      EXPECT_FALSE(LookUp(param.input_param.msop_port).found);
    }
    if (i == 0) {
      EXPECT_EQ(quiet.Text(), "type:33\nLoadCheckFolder failed!\n");
      int status = 77;
      EXPECT_FALSE(live.manager.GetLocalFileStatus(status));
      EXPECT_EQ(status, 77);
    }
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
    const std::string yellow = "\033[1m\033[33mError:Get point cloud call back is nullptr!\033[0m\n";
    std::atomic<int> put{0}, got{0}, imu_put{0}, imu_got{0};
    OnlineManager<Cloud> manager;
    manager.RegisterPointCloudCallBack(
        has(0) ? [&](std::shared_ptr<Cloud> cloud) { put += cloud != nullptr; }
               : std::function<void(std::shared_ptr<Cloud>)>(),
        has(1) ? [&] { return ++got % 2 == 1 ? std::make_shared<Cloud>() : nullptr; }
               : std::function<std::shared_ptr<Cloud>()>());
    manager.RegisterImuCallBack(has(2) ? [&](std::shared_ptr<ImuMsg> msg) { imu_put += msg != nullptr; }
                                       : std::function<void(std::shared_ptr<ImuMsg>)>(),
                                has(3) ? [&] { return ++imu_got, std::make_shared<ImuMsg>(); }
                                       : std::function<std::shared_ptr<ImuMsg>()>());
    if (has(4)) manager.RegisterExceptionCallBack([](const Error&) {});
    const DriverParam param = LiveParam(TS6);
    ASSERT_TRUE(manager.Init(param));
    ASSERT_TRUE(manager.Start());
    DataPort data(param.input_param.msop_port);
    const std::string bad(7, 'x');
    data.SendBytes(bad.data(), bad.size());
    for (unsigned i = 0; i < 3; ++i) data.Send(PlausiblePacket(random, TS6).FrameEnd(63).Stamp(i + 1));

    const auto lines = [&] {
      int count = 0;
      const std::string text = console.Text();
      for (size_t at = 0; (at = text.find(yellow, at)) != std::string::npos; ++at) ++count;
      return count;
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

TEST(LiveManager, StalledCallbackCostsQueuedPacketsOnly) {
  Random random(4);
  std::latch stalled(1), released(1);
  Collector<Cloud> frames;
  OnlineManager<Cloud> manager;
  manager.RegisterPointCloudCallBack(
      [&, first = true](std::shared_ptr<Cloud> cloud) mutable {
        if (std::exchange(first, false)) {
          stalled.count_down();
          released.wait();
        }
        frames.Put(std::move(cloud));
      },
      [] { return std::make_shared<Cloud>(); });
  const DriverParam param = LiveParam(TS4B);
  ASSERT_TRUE(manager.Init(param));
  ASSERT_TRUE(manager.Start());
  DataPort data(param.input_param.msop_port);
  data.Send(Packet(TS4B).FrameEnd(0));
  stalled.wait();

  constexpr int kQueueLimit = 8192;
  for (int i = 0; i < kQueueLimit; ++i) data.Send(Packet(TS4B).FrameEnd(0));  // the last one clears the queue
  const std::vector<Packet> frame = Frame(random, TS4B, 4, 31);
  data.Send(frame);
  ASSERT_TRUE(data.Drained());
  EXPECT_EQ(LookUp(param.input_param.msop_port).drops, 0U);  // receiving never waited
  released.count_down();
  ASSERT_TRUE(frames.WaitFor(2));
  ExpectSameCloud(*frames.At(1), *ExpectedFrames<Cloud>(TS4B, frame)[0]);
  manager.Stop();
  EXPECT_EQ(frames.Count(), 2U);
}

/// Packets that keep coming, whatever the driver does.
class Downpour {
 public:
  explicit Downpour(uint16_t port)
      : thread_([this, port] {
          const UdpPeer peer;
          Packet packet(TS4B);
          packet.FrameEnd(31);
          while (!ending_) peer.Send(port, packet.data(), packet.size());
        }) {}
  ~Downpour() {
    ending_ = true;
    thread_.join();
  }
  Downpour(const Downpour&) = delete;
  Downpour& operator=(const Downpour&) = delete;

 private:
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

TEST(LiveManager, StartsStopsAndEndsWhilePacketsPourIn) {
  const DriverParam param = LiveParam(TS4B);
  const Downpour downpour(param.input_param.msop_port);
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

TEST(LiveManager, TwoDriversLoseNothingAndDoNotMix) {
  constexpr size_t kFrames = 60;
  const auto run = [](LidarType model) {
    Random random(static_cast<unsigned>(model));
    std::vector<Packet> stream;
    for (size_t i = 0; i < kFrames; ++i) Append(stream, Frame(random, model, 1 + i, 7));
    const auto expected = ExpectedFrames<Cloud>(model, stream);
    LiveDriver<Cloud> live;
    const DriverParam param = LiveParam(model);
    ASSERT_TRUE(live.manager.Init(param));
    ASSERT_TRUE(live.manager.Start());
    DataPort(param.input_param.msop_port).Send(stream);
    ASSERT_TRUE(live.frames.WaitFor(kFrames));
    for (size_t i = 0; i < kFrames; ++i) ExpectSamePoints(live.frames.At(i)->points, expected[i]->points);
  };
  std::thread other([&] { run(TS6); });
  run(TS4B);
  other.join();
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
  ASSERT_TRUE(manager.Init(param));
  ASSERT_TRUE(manager.Start());
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
      {"garbage",
       [](const CalibrationRequest&, size_t) {
         return Answers{"?", std::string(2000, 'y')};
       },
       false},
      {"every second request unanswered until it has come three times",
       [&, asked = 0](const CalibrationRequest& r, size_t n) mutable {
         return r.offset == 5000 && ++asked < 3 ? Answers{} : obedient(r, n);
       },
       true},
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
    ASSERT_TRUE(live.manager.Init(param));
    ASSERT_TRUE(live.manager.Start());

    DataPort data(param.input_param.msop_port);
    const std::vector<Packet> frame = Frame(random, TS4B, 3, 31);
    const auto calibrated = ExpectedFrames<Cloud>(TS4B, frame, sent.get())[0];
    const auto plain = ExpectedFrames<Cloud>(TS4B, frame)[0];
    const auto same = [](const Cloud& a, const Cloud& b) {
      return std::equal(a.points.begin(), a.points.end(), b.points.begin(), b.points.end(),
                        [](const PointSource& p, const PointSource& q) { return Same(p, q); });
    };
    bool applied = false;
    for (size_t i = 1; i < 20 || (c.completes && !applied); ++i) {
      data.Send(frame);
      ASSERT_TRUE(live.frames.WaitFor(i));
      applied = same(*live.frames.Last(), *calibrated);
      ASSERT_TRUE(applied || live.frames.Last()->points.size() == plain->points.size());
    }
    EXPECT_EQ(applied, c.completes);
    live.manager.Stop();
    ASSERT_TRUE(live.manager.Start());  // after a finished or a broken-off download
    data.Send(frame);
    EXPECT_TRUE(live.frames.WaitFor(live.frames.Count() + 1));
  }
}

}  // namespace
}  // namespace orva::test
