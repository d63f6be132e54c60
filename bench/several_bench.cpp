// SPDX-License-Identifier: Apache-2.0
//
// Eight simulated sensors at 10 frames a second into one `orva live --config`: several_bench [SECONDS
// [SENSORS]]. Everything runs on the two cores that it binds itself to, the senders too. Exit code 1 where a
// packet or a part of a frame is lost.
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "sim/live_sensor.h"
#include "sim/sensor.h"
#include "sim/udp_endpoint.h"

namespace {

using orva::sim::LiveSensor;
using orva::sim::TimedPacket;

constexpr int64_t kFrame = 100'000'000;  ///< nanoseconds

/// The same frame again and again: sending must cost little beside receiving.
class OneFrame : public orva::sim::PacketSource {
 public:
  OneFrame(const std::vector<TimedPacket>& packets, int64_t length) : packets_(packets), end_(length) {}

  bool Next(TimedPacket& packet) override {
    packet = packets_[next_ % packets_.size()];
    const auto turn = static_cast<int64_t>(next_++ / packets_.size());
    packet.time_ns += turn * kFrame - packets_.front().time_ns;
    return packet.time_ns < end_;
  }

 private:
  const std::vector<TimedPacket>& packets_;
  const int64_t end_;
  size_t next_ = 0;
};

void BindToTwoCores() {
  cpu_set_t all, two;
  CPU_ZERO(&two);
  if (sched_getaffinity(0, sizeof(all), &all) != 0) return;
  for (size_t core = 0, chosen = 0; core < CPU_SETSIZE && chosen < 2; ++core) {
    if (!CPU_ISSET(core, &all)) continue;
    CPU_SET(core, &two);
    ++chosen;
  }
  sched_setaffinity(0, sizeof(two), &two);
}

double CpuSeconds(int who) {
  rusage usage{};
  getrusage(who, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

uint64_t Number(const std::string& line, const std::string& key) {
  const size_t at = line.find("\"" + key + "\":");
  return at == std::string::npos ? 0 : std::strtoull(line.c_str() + at + key.size() + 3, nullptr, 10);
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 5.0;
  const size_t count = argc > 2 ? static_cast<size_t>(std::atoi(argv[2])) : 8;
  BindToTwoCores();
  std::vector<TimedPacket> packets;
  orva::sim::Sensor sensor({.model = TS4B, .frames = 1});
  for (TimedPacket packet; sensor.Next(packet);) packets.push_back(packet);

  std::string pattern = std::filesystem::temp_directory_path() / "orva_several_XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) return 1;
  const std::string config = pattern + "/eight.toml";
  std::vector<uint16_t> ports;
  {
    std::vector<std::unique_ptr<orva::sim::UdpEndpoint>> taken;
    std::ofstream file(config);
    for (size_t i = 0; i < count; ++i) {
      taken.push_back(std::make_unique<orva::sim::UdpEndpoint>("127.0.0.1", 0));
      ports.push_back(taken.back()->Port());
      file << "[sensor.s" << i << "]\nmodel = 'TS4B'\nuncalibrated = true\nport = " << ports.back() << "\n";
    }
  }
  const std::string command =
      ORVA_TOOL " live --quiet --json --config " + config + " --duration " + std::to_string(seconds + 2.0);
  std::FILE* tool = popen(command.c_str(), "r");
  if (tool == nullptr) return 1;
  usleep(500'000);  // until it listens
  std::vector<std::unique_ptr<LiveSensor>> sensors;
  for (const uint16_t port : ports) {
    sensors.push_back(std::make_unique<LiveSensor>(
        std::make_unique<OneFrame>(packets, static_cast<int64_t>(seconds * 1e9)), "127.0.0.1", port));
  }
  uint64_t received = 0, lost = 0, frames = 0, incomplete = 0;
  char line[4096];
  while (std::fgets(line, sizeof(line), tool) != nullptr) {
    const std::string text = line;
    if (text.find("\"summary\"") == std::string::npos) continue;
    received += Number(text, "received");
    lost += Number(text, "kernel_dropped") + Number(text, "discarded");
    frames += Number(text, "frames");
    incomplete += Number(text, "incomplete_frames") + Number(text, "merged_frames");
  }
  pclose(tool);
  uint64_t sent = 0;
  for (const auto& one : sensors) sent += one->Counts().sent;
  std::filesystem::remove_all(pattern);
  std::printf(
      "%zu sensors, %.0f s: %llu packets sent, %llu received, %llu lost; %llu frames, %llu incomplete; "
      "%.2f cores for orva live, %.2f for the senders\n",
      count, seconds, static_cast<unsigned long long>(sent), static_cast<unsigned long long>(received),
      static_cast<unsigned long long>(lost), static_cast<unsigned long long>(frames),
      static_cast<unsigned long long>(incomplete), CpuSeconds(RUSAGE_CHILDREN) / seconds,
      CpuSeconds(RUSAGE_SELF) / seconds);
  return sent == received && lost == 0 && incomplete == 0 &&
                 frames >= count * static_cast<size_t>(seconds * 9)
             ? 0
             : 1;
}
