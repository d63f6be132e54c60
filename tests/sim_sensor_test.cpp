// SPDX-License-Identifier: Apache-2.0
//
// The simulator's own promises: repeatable bytes, true statistics, motion, captures, calibration folders.
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <sys/resource.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "param/param_service.h"
#include "sim/calibration.h"
#include "sim/capture_writer.h"
#include "sim/sensor.h"
#include "support/temp_folder.h"

namespace orva::test {
namespace {

sim::SensorConfig Config(LidarType model, const std::string& scene, uint64_t frames) {
  sim::SensorConfig config;
  config.model = model;
  config.scene = scene;
  config.frames = frames;
  return config;
}

std::vector<sim::TimedPacket> AllPackets(const sim::SensorConfig& config) {
  sim::Sensor sensor(config);
  std::vector<sim::TimedPacket> packets(1);
  while (sensor.Next(packets.back())) packets.emplace_back();
  packets.pop_back();
  return packets;
}

TEST(SimSensor, RepeatsItselfAndVariesWithTheSeed) {
  sim::SensorConfig config = Config(NV2, "street", 1);
  const auto packets = AllPackets(config);
  const auto again = AllPackets(config);
  ++config.seed;
  const auto other = AllPackets(config);
  ASSERT_EQ(packets.size(), 56U);
  for (size_t i = 0; i < packets.size(); ++i) {
    EXPECT_EQ(packets[i].payload, again[i].payload);
    EXPECT_NE(packets[i].payload, other[i].payload);
    EXPECT_NEAR(static_cast<double>(packets[i].time_ns - config.start_ns), static_cast<double>(i) * 1e8 / 56,
                1.0);
  }
}

TEST(SimSensor, NoiseAndDropoutsAreAsAsked) {
  sim::SensorConfig config = Config(NV2, "room", 10);
  config.noise = 0.05;
  config.dropout = 0.1;
  sim::Sensor sensor(config);
  sim::TimedPacket packet;
  double sum = 0.0;
  double squares = 0.0;
  double returned = 0.0;
  double all = 0.0;
  while (sensor.Next(packet)) {
    for (size_t k = 0; k < 192; ++k, ++all) {
      const sim::TrueHit& truth = sensor.Truth()[k];
      const uint32_t code = packet.payload[30 + 6 * k] + 256U * packet.payload[31 + 6 * k];
      ASSERT_EQ(truth.returned, code != 0);
      if (!truth.returned) continue;
      const double error = code * 0.009375 - 2.0 - truth.distance;
      sum += error;
      squares += error * error;
      ++returned;
    }
  }
  EXPECT_NEAR(sum / returned, 0.0, 0.001);
  EXPECT_NEAR(std::sqrt(squares / returned), 0.05, 0.002);
  EXPECT_NEAR(1.0 - returned / all, 0.1, 0.005);
}

TEST(SimSensor, PhaseMovesTheFrameEndMarker) {
  for (const uint32_t phase : {0U, 26U}) {
    sim::SensorConfig config = Config(TS4B, "wall", 2);
    config.grid_phase = phase;
    std::vector<std::pair<size_t, size_t>> markers;  // packet, block
    const auto packets = AllPackets(config);
    for (size_t i = 0; i < packets.size(); ++i) {
      for (size_t k = 0; k < 32; ++k) {
        const uint8_t* code = &packets[i].payload[25 + 40 * k];
        if (code[0] == 0x7F && code[1] == 0xBF) markers.emplace_back(i, k);
      }
    }
    const std::vector<std::pair<size_t, size_t>> expected{{767, 31 - phase}, {1535, 31 - phase}};
    EXPECT_EQ(markers, expected);
  }
}

TEST(SimMotion, RatesAndForcesBelongToThePath) {
  constexpr double kStep = 1e-4;
  const auto scene = sim::MakeScene("street", 1);
  for (double time = 0.0; time < 5.0; time += 0.37) {
    const sim::Rotation now = scene->motion.PoseAt(time).rotation;
    const sim::Rotation then = scene->motion.PoseAt(time + kStep).rotation;
    const sim::Vec3 w = scene->motion.AngularRate(time + kStep / 2);
    // Seen from the sensor, its forward axis moves by w x (1, 0, 0), its left axis by w x (0, 1, 0).
    const sim::Vec3 x = now.ToSensor(then.x);
    const sim::Vec3 y = now.ToSensor(then.y);
    EXPECT_NEAR(x.y / kStep, w.z, 1e-4);
    EXPECT_NEAR(x.z / kStep, -w.y, 1e-4);
    EXPECT_NEAR(y.z / kStep, w.x, 1e-4);
  }
  sim::Motion straight;
  straight.reach = 10.0;
  straight.speed = 5.0;
  for (const double time : {0.0, 1.0, 3.0}) {
    const sim::Vec3 force = straight.SpecificForce(time);
    EXPECT_NEAR(force.x, -2.5 * std::sin(0.5 * time), 1e-4);
    EXPECT_NEAR(force.y, 0.0, 1e-6);
    EXPECT_NEAR(force.z, 9.80665, 1e-6);
  }
}

TEST(SimCalibration, FoldersLoadToTheSameBits) {
  for (const LidarType type : {TS4B, TS6, TS4A, TS4}) {
    const TempFolder folder;
    const sim::Model& model = sim::FindModel(type);
    const sim::Calibration unit = sim::MakeCalibration(model, 7);
    sim::WriteCalibrationFolder(unit, model, folder.Path("unit"));
    tevoro::lidar::ParamService service;
    ASSERT_TRUE(service.LoadCheckFolder(type, folder.Path("unit"))) << model.name;
    const tevoro::lidar::CheckParam& loaded = *service.GetCheckParam(type);
    EXPECT_EQ(0, std::memcmp(loaded.azimuth, unit.azimuth.data(), sizeof(loaded.azimuth)));
    EXPECT_EQ(0, std::memcmp(loaded.elevation, unit.elevation.data(), sizeof(loaded.elevation)));
    EXPECT_EQ(0, std::memcmp(loaded.weight, unit.weight.data(), sizeof(loaded.weight)));
    EXPECT_EQ(0, std::memcmp(loaded.near_filter, unit.near_filter.data(), sizeof(loaded.near_filter)));
  }
}

TEST(SimCapture, EveryFramingHoldsThePackets) {
  const auto packets = AllPackets(Config(NV2, "room", 1));
  using sim::Framing;
  const std::vector<std::pair<Framing, size_t>> framings{{Framing::kEthernet, 14},
                                                         {Framing::kLinuxCooked, 16},
                                                         {Framing::kLinuxCookedV2, 20},
                                                         {Framing::kRawIp, 0},
                                                         {Framing::kLoopback, 4}};
  for (const auto& [framing, link_size] : framings) {
    for (const bool extended : {false, true}) {
      const TempFolder folder;
      sim::CaptureOptions options;
      options.framing = framing;
      options.nanoseconds = options.ip_options = extended;
      sim::CaptureWriter writer(folder.Path("a.pcap"), options);
      for (const auto& packet : packets) writer.Write(packet);
      writer.Finish();

      char error[PCAP_ERRBUF_SIZE];
      pcap_t* capture = pcap_open_offline_with_tstamp_precision(folder.Path("a.pcap").c_str(),
                                                                PCAP_TSTAMP_PRECISION_NANO, error);
      ASSERT_NE(capture, nullptr) << error;
      bpf_program filter{};
      ASSERT_EQ(0, pcap_compile(capture, &filter, "udp dst port 6699", 1, PCAP_NETMASK_UNKNOWN));
      pcap_pkthdr* header = nullptr;
      const u_char* data = nullptr;
      size_t count = 0;
      while (pcap_next_ex(capture, &header, &data) == 1) {
        ASSERT_NE(0, pcap_offline_filter(&filter, header, data));
        const size_t ip_size = extended ? 24 : 20;
        ASSERT_EQ(header->caplen, link_size + ip_size + 8 + 1236);
        uint32_t sum = 0;
        for (size_t i = 0; i < ip_size; i += 2) sum += data[link_size + i] * 256U + data[link_size + i + 1];
        EXPECT_EQ(0xFFFFU, (sum >> 16) + (sum & 0xFFFF));  // a header with its checksum adds up to ones
        const auto& sent = packets.at(count++);
        EXPECT_EQ(0, std::memcmp(data + link_size + ip_size + 8, sent.payload.data(), sent.payload.size()));
        EXPECT_EQ(header->ts.tv_sec * 1'000'000'000 + header->ts.tv_usec,
                  extended ? sent.time_ns : sent.time_ns / 1000 * 1000);
      }
      EXPECT_EQ(count, packets.size());
      pcap_freecode(&filter);
      pcap_close(capture);
    }
  }
}

TEST(SimCapture, AFullDiskIsToldAndLeavesNothing) {
  const TempFolder folder;
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit full{64 * 1024, limit.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  EXPECT_THROW(
      {
        sim::CaptureWriter writer(folder.Path("a.pcap"));
        for (const auto& packet : AllPackets(Config(NV2, "wall", 2))) writer.Write(packet);
        writer.Finish();
      },
      std::runtime_error);
  const sim::Model& model = sim::FindModel(TS4B);
  EXPECT_THROW(sim::WriteCalibrationFolder(sim::MakeCalibration(model, 1), model, folder.Path()),
               std::runtime_error);
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
  EXPECT_THROW(sim::CaptureWriter(folder.Path("missing/a.pcap")), std::runtime_error);
}

}  // namespace
}  // namespace orva::test
