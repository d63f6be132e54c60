// SPDX-License-Identifier: Apache-2.0
//
// What publishing a TS4B frame costs, as a multiple of a memcpy of its message in the same run: making the
// message, and making and handing it to DDS. Usage: publish_cost [READERS], which begins when so many have
// come.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "sensor_topics.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Each in turn, so that all see the same machine; microseconds, the median.
template <typename... Work>
std::vector<double> Medians(int rounds, const Work&... work) {
  std::vector<std::vector<double>> times(sizeof...(work));
  for (int round = 0; round < rounds; ++round) {
    size_t i = 0;
    const auto measure = [&](const auto& one) {
      const Clock::time_point start = Clock::now();
      one();
      times[i++].push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    };
    (measure(work), ...);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // a frame's time, for readers to keep up
  }
  std::vector<double> medians;
  for (std::vector<double>& list : times) {
    std::nth_element(list.begin(), list.begin() + rounds / 2, list.end());
    medians.push_back(list[static_cast<size_t>(rounds / 2)]);
  }
  return medians;
}

}  // namespace

int main(int argc, char** argv) {
  const int readers = argc > 1 ? std::atoi(argv[1]) : 0;
  PointCloud<PointTime> cloud;
  for (int i = 0; i < 24576; ++i) {
    PointTime point{};
    point.x = 1.0F + static_cast<float>(i % 128);
    point.label = static_cast<uint16_t>(i / 128);
    cloud.points.push_back(point);
  }
  const orva::ros2::Participant participant;
  orva::ros2::SensorTopics topics(participant, "/front", orva::ros2::Delivery::kReliable, {});
  for (int tries = 0; tries < 1000 && !topics.HasReaders(readers); ++tries)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  orva::messages::PointCloud2 message;
  std::vector<uint8_t> copy(cloud.points.size() * 22);
  int not_taken = 0;
  double stamp = 1.0;
  const std::vector<double> times = Medians(
      200, [&] { std::memcpy(copy.data(), message.data.data(), message.data.size()); },
      [&] { orva::messages::FillPointCloud2(cloud, stamp, {}, message); },
      [&] { not_taken += topics.Publish(cloud, stamp += 0.1) == orva::ros2::Outcome::kNotTaken; });
  std::printf(
      "%zu bytes, %d readers: memcpy %.0f us, message %.2f times that, published %.2f times; %d not taken\n",
      copy.size(), readers, times[0], times[1] / times[0], times[2] / times[0], not_taken);
}
