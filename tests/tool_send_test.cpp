// SPDX-License-Identifier: Apache-2.0
//
// `orva send` to a socket of the test, and to `orva live`.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "sim/capture_writer.h"
#include "sim/sensor.h"
#include "sim/udp_endpoint.h"
#include "support/tool_process.h"

namespace {

namespace fs = std::filesystem;
using orva::sim::UdpEndpoint;
using orva::test::ToolProcess;
using std::chrono::steady_clock;

class SendTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = fs::temp_directory_path() / "orva_send_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { fs::remove_all(folder_); }

  fs::path folder_;
};

TEST_F(SendTest, SendsEachPayloadAndNoneTooEarly) {
  const std::string path = folder_ / "a.pcap";
  // Milliseconds; the clock of a recording may step back.
  constexpr int kTimes[] = {0, 40, 40, 30, 120, 200};
  {
    orva::sim::CaptureWriter file(path);
    for (size_t i = 0; i < std::size(kTimes); ++i) {
      file.Write({std::vector<uint8_t>(1 + 300 * i, static_cast<uint8_t>(i)),
                  1'700'000'000'000'000'000 + kTimes[i] * 1'000'000LL});
    }
    file.Finish();
  }
  const struct {
    std::vector<std::string> options;
    std::vector<int> sent;   ///< numbers of the packets
    std::vector<int> after;  ///< milliseconds at least
  } cases[] = {{{}, {0, 1, 2, 3, 4, 5}, {0, 40, 40, 40, 120, 200}},
               {{"--rate", "2"}, {0, 1, 2, 3, 4, 5}, {0, 20, 20, 20, 60, 100}},
               {{"--from", "0.035", "--until", "0.2"}, {1, 2, 4}, {0, 0, 80}},
               {{"--loop"}, {0, 1, 2, 3, 4, 5, 0, 1}, {0, 40, 40, 40, 120, 200, 240, 280}}};
  for (const auto& wish : cases) {
    const UdpEndpoint sink("127.0.0.1", 0);
    std::vector<std::string> arguments = {"send", path, "--to", "localhost:" + std::to_string(sink.Port())};
    arguments.insert(arguments.end(), wish.options.begin(), wish.options.end());
    const auto start = steady_clock::now();
    ToolProcess tool(arguments);
    for (size_t i = 0; i < wish.sent.size(); ++i) {
      std::vector<uint8_t> buffer(2000);
      sockaddr_in from{};
      buffer.resize(sink.Receive(buffer, from, 60'000));
      const auto number = static_cast<size_t>(wish.sent[i]);
      EXPECT_EQ(buffer, std::vector<uint8_t>(1 + 300 * number, static_cast<uint8_t>(number)));
      EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(wish.after[i]));
    }
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 0) << tool.errors();
    double middle = -1.0, high = -1.0, most = -1.0;
    const size_t summary = tool.errors().find("late by");
    ASSERT_NE(summary, std::string::npos) << tool.errors();
    std::sscanf(tool.errors().c_str() + summary, "late by %lf ms (p50), %lf ms (p99), at most %lf ms",
                &middle, &high, &most);
    EXPECT_TRUE(0.0 <= middle && middle <= high && high <= most) << tool.errors();
  }
}

TEST_F(SendTest, LiveModeSeesFramesAndImuOfARecording) {
  const std::string path = folder_ / "nv2.pcap";
  {
    orva::sim::Sensor sensor({.model = NV2, .frames = 4});
    orva::sim::CaptureWriter file(path);
    for (orva::sim::TimedPacket packet; sensor.Next(packet);) file.Write(packet);
    file.Finish();
  }
  const std::string port = std::to_string(UdpEndpoint("127.0.0.1", 0).Port());
  const std::string imu = folder_ / "imu.csv";
  ToolProcess live({"live", "--model", "NV2", "--port", port, "--frames", "2", "--imu", imu});
  ASSERT_TRUE(live.WaitForError("listening"));
  EXPECT_EQ(ToolProcess({"send", path, "--to", "127.0.0.1:" + port, "--loop", "--duration", "1"}).Wait(), 0);
  EXPECT_EQ(live.Wait(), 0) << live.errors();
  std::ifstream file(imu);
  EXPECT_GT(std::count(std::istreambuf_iterator<char>(file), {}, '\n'), 10);
}

TEST_F(SendTest, RefusesWithAReason) {
  const std::string path = folder_ / "a.pcap";
  orva::sim::CaptureWriter file(path);
  file.Write({{1, 2, 3}, 5});
  file.Finish();
  const struct {
    std::vector<std::string> arguments;
    int exit_code;
    const char* text;
  } cases[] = {{{"send", path, "--to", "192.0.2.1:6699"}, 1, "--remote"},  // a network for examples
               {{"send", path, "--to", "127.0.0.1"}, 2, "no address and port"},
               {{"send", path, "--to", "127.0.0.1:70000"}, 2, "no address and port"},
               {{"send", path, "--to", "127.0.0.1:9", "--port", "1"}, 1, "nothing was sent"},
               {{"send", path, "--to", "127.0.0.1:9", "--rate", "0"}, 2, "--rate"},
               {{"send", "-", "--to", "127.0.0.1:9", "--loop"}, 2, "needs a file"}};
  for (const auto& odd : cases) {
    ToolProcess tool(odd.arguments);
    EXPECT_EQ(tool.Wait(), odd.exit_code) << odd.text;
    EXPECT_NE(tool.errors().find(odd.text), std::string::npos) << tool.errors();
  }
}

}  // namespace
