// SPDX-License-Identifier: Apache-2.0
//
// The simulated sensor on the network, alone and with the driver at the other end.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <vector>

#include "sim/calibration_server.h"
#include "sim/live_sensor.h"
#include "support/player.h"

namespace orva::test {
namespace {

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

TEST(SimStream, KeepsTimeAndMisbehavesOnRequest) {
  const sim::StreamFaults cases[] = {
      {}, {.drop = 0.5}, {.reorder = 1.0}, {.corrupt = 1.0}, {.wrong_length = 1.0}};
  for (const sim::StreamFaults& faults : cases) {
    const UdpPeer receiver;
    const auto start = std::chrono::steady_clock::now();
    sim::LiveSensor live(std::make_unique<Numbers>(), kLoopback, receiver.Port(), faults);
    live.Join();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::microseconds(500 * 199));
    const auto sent = static_cast<double>(live.Counts().sent);
    EXPECT_NEAR(sent, faults.drop > 0 ? 100.0 : 200.0, faults.drop > 0 ? 40.0 : 0.0);
    if (faults.drop > 0) continue;
    for (size_t i = 0; i < 200; ++i) {
      const std::string bytes = receiver.Receive(nullptr, 60'000);
      EXPECT_EQ(bytes.size() == 20, faults.wrong_length == 0.0);
      const char number = static_cast<char>(faults.reorder > 0 ? i ^ 1U : i);
      EXPECT_EQ(bytes == std::string(20, number), faults.wrong_length + faults.corrupt == 0.0) << i;
    }
  }
}

TEST(SimLive, DriverSeesSceneAndMotionThroughADownloadedCalibration) {
  sim::SensorConfig config;
  config.model = TS6;
  config.frames = 4;
  config.rate = 5.0;
  config.noise = config.dropout = config.imu_noise = 0.0;

  // The same sensor once more tells what is to come.
  std::vector<sim::TrueHit> truth;
  std::vector<std::pair<double, sim::ImuSample>> samples;
  sim::Sensor twin(config);
  sim::TimedPacket packet;
  while (twin.Next(packet)) {
    truth.insert(truth.end(), twin.Truth().begin(), twin.Truth().end());
    if (samples.empty() || samples.back().second.stamp != twin.TrueMotion().stamp) {
      samples.emplace_back(static_cast<double>(packet.time_ns) * 1e-9, twin.TrueMotion());
    }
  }

  const sim::CalibrationServer server(sim::MakeCalibrationStream(twin.GetCalibration(), twin.GetModel()),
                                      kLoopback, 0);
  DriverParam param = LiveParam(TS6);
  param.calib_from_lidar = true;
  param.calibration_param = CommandParam(server.Port());
  Player<PointCloud<Point>> player;
  ASSERT_TRUE(player.Run(param));
  ASSERT_TRUE(Eventually([&] {
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
  ASSERT_EQ(player.imu.size(), samples.size());
  for (size_t i = 0; i < samples.size(); ++i) {
    const ImuMsg& message = *player.imu[i];
    const auto& [rate, force, stamp] = samples[i].second;
    EXPECT_TRUE(message.valid);
    EXPECT_NEAR(message.timestamp, samples[i].first, 2e-6);
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
