// SPDX-License-Identifier: Apache-2.0
//
// The simulated sensor on the network, alone and with the driver at the other end.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#include "sim/calibration_server.h"
#include "sim/live_sensor.h"
#include "support/packets.h"
#include "support/player.h"

namespace orva::test {
namespace {

constexpr const char* kLoopback = "127.0.0.1";

std::vector<uint8_t> Request(uint32_t offset, uint16_t count) {
  std::vector<uint8_t> request{0xA5, 0xA5, 0xA5, 0xA5, 0};
  for (int i = 0; i < 4; ++i) request.push_back(static_cast<uint8_t>(offset >> (8 * i)));
  for (int i = 0; i < 2; ++i) request.push_back(static_cast<uint8_t>(count >> (8 * i)));
  uint8_t sum = 0;
  for (const uint8_t byte : request) sum = static_cast<uint8_t>(sum + byte);
  request.push_back(sum);
  return request;
}

TEST(SimCommandPort, HandsOutTheStreamAndIgnoresBrokenRequests) {
  const sim::Model& model = sim::FindModel(TS6);
  const auto stream = sim::MakeCalibrationStream(sim::MakeCalibration(model, 3), model);
  ASSERT_EQ(stream.size(), 393'280U);
  const sim::CalibrationServer server(stream, kLoopback, 0);
  const sim::UdpEndpoint client(kLoopback, 0);
  const sockaddr_in sensor = sim::MakeAddress(kLoopback, server.Port());

  auto broken = Request(0, 10);
  ++broken.back();
  client.Send(broken, sensor);
  std::vector<uint8_t> received;
  std::array<uint8_t, 2048> buffer;
  while (received.size() < stream.size()) {
    client.Send(Request(static_cast<uint32_t>(received.size()), 1000), sensor);
    sockaddr_in from{};
    const size_t size = client.Receive(buffer, from, 10'000);
    ASSERT_GE(size, 39U);
    ASSERT_EQ(0, std::memcmp(buffer.data(), "ZZZZ", 4));
    const std::array<uint8_t, 4> length{0x60, 0x00, 0x06, 0x00};  // 393,312
    ASSERT_EQ(0, std::memcmp(buffer.data() + 4, length.data(), length.size()));
    received.insert(received.end(), buffer.begin() + 36, buffer.begin() + static_cast<ptrdiff_t>(size) - 3);
  }
  EXPECT_EQ(received, stream);
  EXPECT_EQ(server.Requests().size(), 394U);
  EXPECT_EQ(server.Requests().back().offset, 393'000U);
}

/// Numbered packets, half a millisecond apart.
class Numbers : public sim::PacketSource {
 public:
  bool Next(sim::TimedPacket& packet) override {
    packet.payload.assign(20, number_);
    packet.time_ns += 500'000;
    return number_++ < kPackets;
  }
  static constexpr uint8_t kPackets = 200;  // what a socket holds even if nobody reads

 private:
  uint8_t number_ = 0;
};

std::vector<std::vector<uint8_t>> PlayNumbers(const sim::StreamFaults& faults) {
  const sim::UdpEndpoint receiver(kLoopback, 0);
  const auto start = std::chrono::steady_clock::now();
  sim::LiveSensor live(std::make_unique<Numbers>(), kLoopback, receiver.Port(), faults);
  live.Join();
  EXPECT_GE(std::chrono::steady_clock::now() - start,
            std::chrono::microseconds(500) * (Numbers::kPackets - 1));
  std::vector<std::vector<uint8_t>> datagrams;
  std::array<uint8_t, 64> buffer;
  sockaddr_in from{};
  while (const size_t size = receiver.Receive(buffer, from, 0)) {
    datagrams.emplace_back(buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(size));
  }
  EXPECT_EQ(live.Counts().sent, datagrams.size());
  EXPECT_EQ(live.Counts().refused, 0U);
  return datagrams;
}

TEST(SimStream, KeepsOrderAndTimeAndMisbehavesOnRequest) {
  const auto whole = PlayNumbers({});
  ASSERT_EQ(whole.size(), Numbers::kPackets);
  for (size_t i = 0; i < whole.size(); ++i)
    EXPECT_EQ(whole[i], std::vector<uint8_t>(20, static_cast<uint8_t>(i)));

  sim::StreamFaults faults;
  faults.drop = 0.5;
  EXPECT_NEAR(static_cast<double>(PlayNumbers(faults).size()), 100.0, 40.0);
  faults = {};
  faults.reorder = 1.0;
  const auto swapped = PlayNumbers(faults);
  ASSERT_EQ(swapped.size(), Numbers::kPackets);
  EXPECT_EQ(swapped[0][0], 1);
  EXPECT_EQ(swapped[1][0], 0);
  faults = {};
  faults.corrupt = 1.0;
  for (const auto& datagram : PlayNumbers(faults)) {
    EXPECT_EQ(19, std::max(std::count(datagram.begin(), datagram.end(), datagram[18]),
                           std::count(datagram.begin(), datagram.end(), datagram[19])));
  }
  faults = {};
  faults.wrong_length = 1.0;
  for (const auto& datagram : PlayNumbers(faults))
    EXPECT_TRUE(datagram.size() == 19 || datagram.size() == 21);
}

TEST(SimLive, DriverSeesSceneAndMotionThroughADownloadedCalibration) {
  sim::SensorConfig config;
  config.model = TS6;
  config.frames = 4;
  config.rate = 5.0;
  config.noise = config.dropout = config.imu_noise = 0.0;

  // The same sensor once more tells what is to come.
  struct Sample {
    double time;
    sim::ImuSample motion;
  };
  std::vector<sim::TrueHit> truth;
  std::vector<Sample> samples;
  sim::Sensor twin(config);
  sim::TimedPacket packet;
  while (twin.Next(packet)) {
    truth.insert(truth.end(), twin.Truth().begin(), twin.Truth().end());
    if (samples.empty() || samples.back().motion.stamp != twin.TrueMotion().stamp) {
      samples.push_back({static_cast<double>(packet.time_ns) * 1e-9, twin.TrueMotion()});
    }
  }

  const sim::CalibrationServer server(sim::MakeCalibrationStream(twin.GetCalibration(), twin.GetModel()),
                                      kLoopback, 0);
  DriverParam param;
  param.calib_from_lidar = true;
  param.lidar_type = TS6;
  param.input_param.host_ip = kLoopback;
  param.input_param.msop_port = sim::UdpEndpoint(kLoopback, 0).Port();
  param.decoder_param = OpenLimits();
  param.calibration_param.lidar_ip = kLoopback;
  param.calibration_param.lidar_port = server.Port();
  Player<PointCloud<Point>> player;
  std::mutex mutex;
  std::vector<std::shared_ptr<ImuMsg>> messages;
  player.driver.RegisterImuCallBack(
      [&](const std::shared_ptr<ImuMsg>& message) {
        const std::lock_guard lock(mutex);
        messages.push_back(message);
      },
      [] { return std::make_shared<ImuMsg>(); });
  ASSERT_TRUE(player.driver.InitDriver(param));
  ASSERT_TRUE(player.driver.Start());
  ASSERT_TRUE(player.Patiently([&] {
    const auto requests = server.Requests();
    return !requests.empty() && requests.back().last_chunk == 1;
  }));
  sim::LiveSensor live(std::make_unique<sim::Sensor>(config), kLoopback, param.input_param.msop_port);

  // The first frame may have begun before the calibration was in place.
  for (size_t frame = 1; frame < config.frames; ++frame) {
    const auto cloud = player.Wait(frame + 1);
    ASSERT_NE(cloud, nullptr);
    const size_t size = twin.GetModel().BlocksPerFrame();
    ASSERT_EQ(cloud->points.size(), size);
    for (size_t i = 0; i < size; ++i) {
      const Point& point = cloud->points[i];
      const sim::TrueHit& hit = truth[frame * size + i];
      const sim::Vec3 off = sim::Vec3{point.x, point.y, point.z} - hit.point;
      ASSERT_LE(std::sqrt(sim::Dot(off, off)), 0.002 + 2.5e-4 * hit.distance)
          << "frame " << frame << " point " << i;
    }
  }
  player.driver.Stop();
  ASSERT_EQ(messages.size(), samples.size());
  for (size_t i = 0; i < samples.size(); ++i) {
    const ImuMsg& message = *messages[i];
    const auto& [rate, force, stamp] = samples[i].motion;
    EXPECT_TRUE(message.valid);
    EXPECT_NEAR(message.timestamp, samples[i].time, 2e-6);
    const double half_rate = 0.000173611 * std::numbers::pi / 2 + 1e-6;
    EXPECT_NEAR(message.angular_velocity_x, rate.x, half_rate);
    EXPECT_NEAR(message.angular_velocity_y, rate.y, half_rate);
    EXPECT_NEAR(message.angular_velocity_z, rate.z, half_rate);
    const double half_force = 0.004788403 / 2 + 1e-5;
    EXPECT_NEAR(message.linear_acceleration_x, force.x, half_force);
    EXPECT_NEAR(message.linear_acceleration_y, force.y, half_force);
    EXPECT_NEAR(message.linear_acceleration_z, force.z, half_force);
  }
}

}  // namespace
}  // namespace orva::test
