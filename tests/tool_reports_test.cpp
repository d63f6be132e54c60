// SPDX-License-Identifier: Apache-2.0
//
// What the tool tells machines: JSON lines, metrics, and several sensors in one live run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sim/capture_writer.h"
#include "sim/live_sensor.h"
#include "sim/sensor.h"
#include "sim/udp_endpoint.h"

namespace {

namespace fs = std::filesystem;
using orva::sim::LiveSensor;
using orva::sim::Sensor;
using testing::AnyOf;
using testing::HasSubstr;

class ReportsTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = fs::temp_directory_path() / "orva_reports_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { fs::remove_all(folder_); }

  /// The lines of the tool's standard output; its other words go to a file.
  std::vector<std::string> Lines(const std::string& arguments, int expected_exit = 0) {
    const std::string errors = folder_ / "errors";
    std::FILE* pipe = popen((ORVA_TOOL " " + arguments + " 2>" + errors).c_str(), "r");
    std::string text;
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    const int status = pclose(pipe);
    std::ifstream file(errors);
    errors_ = std::string(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(WEXITSTATUS(status), expected_exit) << errors_;
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }
  /// The number that a line of JSON holds under a key.
  static double Number(const std::string& line, const std::string& key) {
    const size_t at = line.find("\"" + key + "\":");
    return at == std::string::npos ? -1.0 : std::stod(line.substr(at + key.size() + 3));
  }

  fs::path folder_;
  std::string errors_;
};

TEST_F(ReportsTest, ReplayAndCheckSpeakJsonAlone) {
  // A name that is no UTF-8 and needs escapes.
  const std::string name = "a \"\xFF\\.pcap";
  {
    Sensor sensor({.model = TS4B, .frames = 3});
    orva::sim::CaptureWriter file(folder_ / name);
    for (orva::sim::TimedPacket packet; sensor.Next(packet);) file.Write(packet);
    file.Finish();
  }
  const auto replay = Lines("replay " + folder_.string() + "/a*.pcap --model TS4B --json --frames 0-1");
  ASSERT_EQ(replay.size(), 3U) << errors_;
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(Number(replay[i], "frame"), static_cast<double>(i));
    EXPECT_EQ(Number(replay[i], "points"), 128 * 192);
    EXPECT_GT(Number(replay[i], "valid"), 1000);
    EXPECT_GE(Number(replay[i], "first_packet"), 1'750'000'000);
  }
  EXPECT_THAT(replay[2], HasSubstr(R"("type":"summary")"));
  EXPECT_THAT(replay[2], HasSubstr("a \\\"\\ufffd\\\\.pcap\""));
  EXPECT_EQ(Number(replay[2], "points"), 2 * 128 * 192);

  const auto check = Lines("check " + folder_.string() + " --model TS4B --json", 1);
  ASSERT_EQ(check.size(), 1U);
  EXPECT_THAT(check[0], HasSubstr(R"("model":"TS4B","accepted":false)"));
}

TEST_F(ReportsTest, SeveralSensorsReportApart) {
  std::array<uint16_t, 3> ports{};
  {
    const orva::sim::UdpEndpoint a("127.0.0.1", 0), b("127.0.0.1", 0), c("127.0.0.1", 0);
    ports = {a.Port(), b.Port(), c.Port()};  // free again, for the tool
  }
  std::ofstream(folder_ / "car.toml")
      << "[sensor.left]\nmodel = 'NV2'\nout = 'left'\nformat = 'csv'\nport = " << ports[0]
      << "\n[sensor.right]\nmodel = 'TS4B'\nuncalibrated = true\nport = " << ports[1]
      << "\nimu = 'right.csv'\n[sensor.silent]\nmodel = 'NV2'\nport = " << ports[2] << "\n";
  const LiveSensor left(std::make_unique<Sensor>(orva::sim::SensorConfig{.model = NV2}), "127.0.0.1",
                        ports[0]);
  const LiveSensor right(std::make_unique<Sensor>(orva::sim::SensorConfig{.model = TS4B}), "127.0.0.1",
                         ports[1]);
  const auto lines = Lines("live --json --duration 2.5 --config " + (folder_ / "car.toml").string(), 1);
  EXPECT_THAT(errors_, HasSubstr("silent: nothing arrived"));
  EXPECT_THAT(errors_, HasSubstr("1 of 3 sensors failed"));
  size_t summaries = 0;
  for (const std::string& line : lines) {
    EXPECT_EQ(line.front(), '{');
    EXPECT_EQ(line.back(), '}');
    EXPECT_THAT(line, AnyOf(HasSubstr("sensor\":\"left\""), HasSubstr("sensor\":\"right\""),
                            HasSubstr("sensor\":\"silent\"")));
    if (line.find("summary") == std::string::npos) continue;
    ++summaries;
    const bool silent = line.find("silent") != std::string::npos;
    if (!silent) EXPECT_GT(Number(line, "frames"), 1) << line;
  }
  EXPECT_EQ(summaries, 4U);  // the silent one's counts, and why it failed
  EXPECT_TRUE(fs::exists(folder_ / "left/frame_0000.csv"));
  EXPECT_FALSE(fs::exists(folder_ / "right"));
}

TEST_F(ReportsTest, ServesMetricsOnLoopback) {
  const uint16_t port = orva::sim::UdpEndpoint("127.0.0.1", 0).Port();
  const LiveSensor sensor(std::make_unique<Sensor>(orva::sim::SensorConfig{.model = NV2}), "127.0.0.1", port);
  const std::string command =
      ORVA_TOOL " live --model NV2 --metrics 0 --duration 20 --port " + std::to_string(port);
  // The shell tells its number first, so that the tool can be ended once it has been asked.
  std::FILE* pipe = popen(("echo $$; exec " + command + " 2>&1").c_str(), "r");
  std::array<char, 400> line{};
  ASSERT_NE(std::fgets(line.data(), line.size(), pipe), nullptr);
  const std::string process(line.data());
  std::string url, page;
  bool absent = false;
  while (std::fgets(line.data(), line.size(), pipe) != nullptr) {
    const std::string text = line.data();
    if (const size_t at = text.find("http://127.0.0.1:"); at != std::string::npos) {
      url = text.substr(at, text.find_first_of("\r\n", at) - at);
    }
    absent = absent || text.find("built without") != std::string::npos;
    if (text.find("frames/s") == std::string::npos) continue;
    // With bash alone: its /dev/tcp is a client enough.
    const std::string number = url.substr(17, url.find('/', 17) - 17);
    const auto ask = [&number](const std::string& request) {
      std::FILE* reply = popen(("bash -c 'exec 3<>/dev/tcp/127.0.0.1/" + number + "; printf \"" + request +
                                " HTTP/1.0\\r\\n\\r\\n\" >&3; cat <&3'")
                                   .c_str(),
                               "r");
      std::string answer;
      for (int c = 0; (c = std::fgetc(reply)) != EOF;) answer += static_cast<char>(c);
      pclose(reply);
      return answer;
    };
    page = ask("GET /metrics");
    EXPECT_THAT(ask("GET /"), HasSubstr(" 404 "));
    EXPECT_THAT(ask("POST /metrics"), HasSubstr(" 405 "));
    break;
  }
  std::system(("kill -INT " + process).c_str());
  pclose(pipe);
  if (absent) GTEST_SKIP() << "the tool was built without an HTTP library";
  EXPECT_THAT(page, HasSubstr(" 200 OK"));
  EXPECT_THAT(page, HasSubstr("# TYPE orva_frames_total counter\norva_frames_total{model=\"NV2\"} "));
  EXPECT_THAT(page, HasSubstr("orva_packets_lost_total{model=\"NV2\",reason=\"kernel\"} "));
  const size_t received = page.find("orva_packets_received_total{model=\"NV2\"} ");
  ASSERT_NE(received, std::string::npos) << page;
  EXPECT_GT(std::stoi(page.substr(received + 41)), 0);
}

}  // namespace
