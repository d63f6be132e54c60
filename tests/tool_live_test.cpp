// SPDX-License-Identifier: Apache-2.0
//
// `orva live`, run as a process on streams of the simulated sensor.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <regex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "sim/sensor.h"
#include "support/loopback.h"
#include "support/result_files.h"
#include "support/temp_folder.h"
#include "support/tool_process.h"

namespace {

namespace fs = std::filesystem;
using orva::test::FilePoint;
using orva::test::Names;
using orva::test::ParseBinary;
using orva::test::ReadFile;
using orva::test::ToolProcess;

class LiveToolTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path(name); }
  std::string Port() const { return std::to_string(port_); }

  /// Sends the sensor's packets at about real pace until the tool ends.
  void StreamUntilEnd(LidarType model, ToolProcess& tool) {
    orva::sim::Sensor sensor({.model = model});
    while (!tool.HasEnded()) Stream(sensor, 1);
  }
  void Stream(orva::sim::Sensor& sensor, uint32_t packets) {
    orva::sim::TimedPacket packet;
    while (packets-- > 0 && sensor.Next(packet)) {
      peer_.Send(port_, packet.payload.data(), packet.payload.size());
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }

  const uint16_t port_ = orva::test::FreePort();
  orva::test::UdpPeer peer_;
  const orva::test::TempFolder folder_;
};

/// A file whose disk stands still until it is told to go on.
class StalledFile {
 public:
  explicit StalledFile(const std::string& path) {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    pipe_ = {open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), POLLIN, 0};
  }
  ~StalledFile() { close(pipe_.fd); }
  StalledFile(const StalledFile&) = delete;
  StalledFile& operator=(const StalledFile&) = delete;

  /// Until somebody writes it.
  bool Wait() { return poll(&pipe_, 1, 60'000) == 1; }
  void GoOn() {
    char piece[65536];
    while (Wait() && read(pipe_.fd, piece, sizeof(piece)) > 0) continue;
  }

 private:
  pollfd pipe_;
};

TEST_F(LiveToolTest, StoresCloudsAndImuSamples) {
  ToolProcess tool({"live", "--model", "NV2", "--host", "127.0.0.1", "--port", Port(), "--frames", "3",
                    "--out", Path("out"), "--imu", Path("imu.csv")});
  ASSERT_TRUE(tool.WaitForError("listening"));
  StreamUntilEnd(NV2, tool);
  EXPECT_EQ(tool.Wait(), 0) << tool.errors();
  EXPECT_EQ(Names(Path("out")),
            (std::set<std::string>{"frame_0000.pcd", "frame_0001.pcd", "frame_0002.pcd"}));
  EXPECT_EQ(ParseBinary(Path("out/frame_0001.pcd"), "DATA binary\n").size(), 56U * 192U);
  const std::string imu = ReadFile(Path("imu.csv"));
  EXPECT_GT(std::count(imu.begin(), imu.end(), '\n'), 20);
}

TEST_F(LiveToolTest, EveryFrameIsStoredOrToldAsNotStored) {
  fs::create_directory(Path("out"));
  StalledFile first(Path("out/frame_0000.csv.part"));
  StalledFile last(Path("out/frame_0001.csv.part"));
  // The end is for the worst. Of the frames 40 may wait, so no wish for 45 is fulfilled.
  ToolProcess tool({"live", "--model", "NV2", "--host", "127.0.0.1", "--port", Port(), "--frames", "45",
                    "--duration", "120", "--out", Path("out"), "--format", "csv"});
  ASSERT_TRUE(tool.WaitForError("listening"));
  orva::sim::Sensor sensor({.model = NV2});
  Stream(sensor, 2 * 56);
  EXPECT_TRUE(first.Wait());
  Stream(sensor, 60 * 56);
  EXPECT_TRUE(orva::test::Eventually([this] { return orva::test::WaitingBytes(port_) == 0U; }));
  first.GoOn();
  EXPECT_TRUE(last.Wait());
  Stream(sensor, 5 * 56);
  last.GoOn();
  EXPECT_EQ(tool.Wait(), 0) << tool.errors();
  const auto number = [&tool](const std::string& before, const std::string& behind) {
    std::smatch match;
    return std::regex_search(tool.errors(), match, std::regex(before + "([0-9]+)" + behind))
               ? std::stoul(match[1])
               : 0UL;
  };
  const size_t missed = number("not stored: ", " frames or IMU samples");
  EXPECT_GT(missed, 10U) << tool.errors();
  EXPECT_EQ(Names(Path("out")).size() + missed, number("", " frames, ")) << tool.errors();
  EXPECT_EQ(tool.errors().find("is complete"), std::string::npos) << tool.errors();
}

TEST_F(LiveToolTest, HoldsFramesBackUntilTheCalibrationIsThere) {
  const std::string command_port = std::to_string(orva::test::FreePort());
  ToolProcess sensor(
      {"simulate", "--live", "--model", "TS4B", "--port", Port(), "--command-port", command_port});
  ASSERT_TRUE(sensor.WaitForError("Streaming"));
  ToolProcess tool({"live", "--model", "TS4B", "--host", "127.0.0.1", "--port", Port(), "--sensor",
                    "127.0.0.1", "--command-port", command_port, "--frames", "1", "--out", Path("out")});
  EXPECT_EQ(tool.Wait(), 0) << tool.errors();
  EXPECT_NE(tool.errors().find("held back"), std::string::npos) << tool.errors();
  const auto points = ParseBinary(Path("out/frame_0000.pcd"), "DATA binary\n");
  EXPECT_TRUE(std::any_of(points.begin(), points.end(), [](const FilePoint& p) { return p.y != 0.0F; }));
}

TEST_F(LiveToolTest, TellsOfLossesOnTheWayAndOfAnotherListener) {
  // The end is for the worst: a word that does not come must not be waited for without end.
  const std::vector<std::string> arguments = {"live",   "--model", "NV2",        "--host", "127.0.0.1",
                                              "--port", Port(),    "--duration", "120"};
  ToolProcess other(arguments);
  ASSERT_TRUE(other.WaitForError("listening"));
  ToolProcess second(arguments);
  EXPECT_TRUE(second.WaitForError("other socket")) << second.errors();
  other.Signal(SIGINT);
  other.Wait();
  ASSERT_TRUE(second.WaitForError("listening"));
  orva::sim::Sensor sensor({.model = NV2, .frames = 4});
  orva::sim::TimedPacket packet;
  for (int i = 0; sensor.Next(packet); ++i) {
    if (i % 56 != 30) peer_.Send(port_, packet.payload.data(), packet.payload.size());
  }
  {
    const std::jthread stranger([this](const std::stop_token& stop) {
      for (; !stop.stop_requested(); std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
        peer_.Send(port_, "x", 1);
      }
    });
    EXPECT_TRUE(second.WaitForError("the sensor is silent")) << second.errors();
  }
  second.Signal(SIGINT);
  EXPECT_EQ(second.Wait(), 0);
  EXPECT_NE(second.errors().find("2 of 3 frames incomplete, 1.8 % of their points"), std::string::npos)
      << second.errors();
}

TEST_F(LiveToolTest, TellsSilenceFromAWrongModel) {
  const std::vector<std::string> arguments = {"live",   "--model", "TS4A",       "--host", "127.0.0.1",
                                              "--port", Port(),    "--duration", "1"};
  ToolProcess silent(arguments);
  EXPECT_EQ(silent.Wait(), 1);
  EXPECT_NE(silent.errors().find("nothing arrived"), std::string::npos) << silent.errors();

  ToolProcess wrong(arguments);
  ASSERT_TRUE(wrong.WaitForError("listening"));
  StreamUntilEnd(NV2, wrong);
  EXPECT_EQ(wrong.Wait(), 1);
  EXPECT_NE(wrong.errors().find("no packets of the model TS4A"), std::string::npos) << wrong.errors();
}

}  // namespace
