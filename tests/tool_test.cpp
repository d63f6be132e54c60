// SPDX-License-Identifier: Apache-2.0
//
// The orva program, run as a process on recordings and streams of the simulated sensor.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "sim/capture_writer.h"
#include "sim/sensor.h"
#include "support/loopback.h"
#include "support/temp_folder.h"
#include "support/tool_process.h"

namespace {

namespace fs = std::filesystem;
using orva::test::ToolProcess;

struct FilePoint {
  float x, y, z, intensity;
  uint32_t label;
  double timestamp;

  bool operator==(const FilePoint&) const = default;
};

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Cuts the packed records that follow a text header.
std::vector<FilePoint> ParseBinary(const fs::path& path, const std::string& header_end) {
  const std::string bytes = ReadFile(path);
  EXPECT_NE(bytes.find(header_end), std::string::npos);
  size_t at = std::min(bytes.size(), bytes.find(header_end) + header_end.size());
  EXPECT_EQ((bytes.size() - at) % 28, 0U);
  std::vector<FilePoint> points((bytes.size() - at) / 28);
  for (FilePoint& point : points) {
    std::memcpy(&point.x, &bytes[at], 16);
    std::memcpy(&point.label, &bytes[at + 16], 4);
    std::memcpy(&point.timestamp, &bytes[at + 20], 8);
    at += 28;
  }
  return points;
}

std::vector<FilePoint> ParseCsv(const fs::path& path) {
  std::istringstream file(ReadFile(path));
  std::string line;
  std::getline(file, line);
  EXPECT_EQ(line, "x,y,z,intensity,label,timestamp");
  std::vector<FilePoint> points;
  while (std::getline(file, line)) {
    FilePoint& p = points.emplace_back();
    EXPECT_EQ(std::sscanf(line.c_str(), "%f,%f,%f,%f,%u,%lf", &p.x, &p.y, &p.z, &p.intensity, &p.label,
                          &p.timestamp),
              6);
  }
  return points;
}

std::set<std::string> Names(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.insert(entry.path().filename());
  }
  return names;
}

class ToolTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path(name); }

  /// Writes NAME.pcap and, where the model has one, the calibration folder NAME. Returns the truth of frame
  /// 0.
  std::vector<orva::sim::TrueHit> Record(const std::string& name, LidarType model, uint64_t frames) {
    orva::sim::Sensor sensor({.model = model, .frames = frames});
    orva::sim::CaptureWriter file(Path(name + ".pcap"));
    std::vector<orva::sim::TrueHit> truth;
    orva::sim::TimedPacket packet;
    for (uint32_t i = 0; sensor.Next(packet); ++i) {
      file.Write(packet);
      if (i < sensor.PacketsPerFrame()) {
        truth.insert(truth.end(), sensor.Truth().begin(), sensor.Truth().end());
      }
    }
    file.Finish();
    if (sensor.GetModel().has_calibration) {
      orva::sim::WriteCalibrationFolder(sensor.GetCalibration(), sensor.GetModel(), Path(name));
    }
    return truth;
  }

  const orva::test::TempFolder folder_;
};

TEST_F(ToolTest, ReplayGivesTheSceneBackInEveryFormat) {
  const auto truth = Record("street", TS4B, 2);
  ToolProcess tool({"replay", Path("street.pcap"), "--model", "ts4b", "--calib", Path("street"), "--out",
                    Path("out"), "--format", "pcd,ply,csv"});
  EXPECT_EQ(tool.Wait(), 0) << tool.errors();
  EXPECT_NE(tool.errors().find("holds 2 frames"), std::string::npos) << tool.errors();
  EXPECT_EQ(Names(Path("out")),
            (std::set<std::string>{"frame_0000.pcd", "frame_0000.ply", "frame_0000.csv", "frame_0001.pcd",
                                   "frame_0001.ply", "frame_0001.csv"}));

  const auto points = ParseBinary(Path("out/frame_0000.pcd"), "DATA binary\n");
  EXPECT_EQ(points, ParseBinary(Path("out/frame_0000.ply"), "end_header\n"));
  EXPECT_EQ(points, ParseCsv(Path("out/frame_0000.csv")));

  ASSERT_EQ(points.size(), truth.size());
  size_t close = 0;
  for (size_t i = 0; i < points.size(); ++i) {
    EXPECT_EQ(points[i].label, i / 128) << i;
    const bool seen = points[i].x != 0.0F;
    close += seen == truth[i].returned &&
             (!seen || std::abs(std::hypot(points[i].x, points[i].y, points[i].z) - truth[i].distance) < 0.2);
  }
  EXPECT_GT(close, points.size() * 99 / 100);

  ToolProcess turned({"replay",
                      Path("street.pcap"),
                      "--model",
                      "TS4B",
                      "--calib",
                      Path("street"),
                      "--out",
                      Path("turned"),
                      "--format",
                      "csv",
                      "--frames",
                      "0",
                      "--valid-only",
                      "--mount",
                      "0",
                      "0",
                      "0",
                      "0",
                      "0",
                      "180"});
  EXPECT_EQ(turned.Wait(), 0) << turned.errors();
  const auto behind = ParseCsv(Path("turned/frame_0000.csv"));
  EXPECT_EQ(behind.size(),
            std::count_if(truth.begin(), truth.end(), [](const auto& t) { return t.returned; }));
  EXPECT_TRUE(std::all_of(behind.begin(), behind.end(), [](const FilePoint& p) { return p.x < 0.0F; }));
}

TEST_F(ToolTest, EveryModelGoesFromSimulationToClouds) {
  const struct {
    std::string model;
    size_t files;
    std::string remark;
  } cases[] = {{"TS4B", 2, "holds 2 frames"},
               {"TS6", 2, "holds 2 frames"},
               {"NV2", 2, "2 files"},
               {"TS4A", 2, "every point is the origin"},
               {"KR7", 0, "no points of a KR7"},
               {"TS4", 0, "no points of a TS4"}};
  for (const auto& sensor : cases) {
    const std::string recording = Path(sensor.model + ".pcap");
    ToolProcess simulate({"simulate", recording, "--model", sensor.model, "--frames", "2", "--calib",
                          Path("unit"), "--force"});
    ASSERT_EQ(simulate.Wait(), 0) << simulate.errors();
    ToolProcess replay(
        {"replay", recording, "--model", sensor.model, "--calib", Path("unit"), "--out", Path(sensor.model)});
    EXPECT_EQ(replay.Wait(), 0) << replay.errors();
    EXPECT_EQ(Names(Path(sensor.model)).size(), sensor.files) << sensor.model;
    EXPECT_NE(replay.errors().find(sensor.remark), std::string::npos) << replay.errors();
  }
  // An NV2's frame ends with the packet that shows it, and is the same whatever was played before it.
  ToolProcess again({"replay", Path("NV2.pcap"), "--model", "NV2", "--frames", "1", "--out", Path("again")});
  EXPECT_EQ(again.Wait(), 0) << again.errors();
  EXPECT_EQ(ParseBinary(Path("NV2/frame_0000.pcd"), "DATA binary\n").size(), 57U * 192U);
  EXPECT_EQ(ReadFile(Path("NV2/frame_0001.pcd")), ReadFile(Path("again/frame_0001.pcd")));
}

TEST_F(ToolTest, BadInputGetsItsExitCodeAndAReason) {
  Record("street", TS4B, 1);
  std::ofstream(Path("junk.pcap")) << "this is no capture at all";
  std::ofstream(Path("empty.pcap"));
  std::ofstream(Path("packed.pcap")) << "\x1F\x8B\x08 and so on";
  fs::copy_file(Path("street.pcap"), Path("cut.pcap"));
  fs::resize_file(Path("cut.pcap"), 500'000);
  fs::create_symlink("loop.pcap", Path("loop.pcap"));
  const std::string cut = Path("cut.pcap");
  fs::create_directory(Path("bare"));
  const std::string street = Path("street.pcap");
  const struct {
    std::vector<std::string> arguments;
    int exit_code;
    std::string reason;
  } cases[] = {
      {{}, 2, "subcommand is required"},
      {{"replay", street, "--model", "TS5"}, 2, "no model 'TS5'"},
      {{"replay", street, "--model", "TS4B", "--frames", "4-2"}, 2, "runs backwards"},
      {{"replay", street, "--model", "TS4B", "--out", Path("out"), "--format", "las"}, 2, "no format 'las'"},
      {{"render", street}, 2, "--model"},
      {{"replay", Path("none.pcap"), "--model", "TS4B"}, 1, "No such file"},
      {{"replay", Path("junk.pcap"), "--model", "TS4B"}, 1, "no capture file"},
      {{"replay", Path("empty.pcap"), "--model", "TS4B"}, 1, "is empty"},
      {{"replay", Path("loop.pcap"), "--model", "TS4B"}, 1, "symbolic links"},
      {{"replay", Path("packed.pcap"), "--model", "TS4B"}, 1, "orva extract"},
      {{"replay", cut, "--model", "TS4B"}, 0, "is cut"},
      {{"replay", street, "--model", "TS4B", "--port", "9"}, 1, "sensor (TS4B) were sent to port 6699"},
      {{"replay", street, "--model", "TS4B", "--distance", "50", "1"}, 2, "no value lies between"},
      {{"replay", street, "--model", "TS4B", "--distance", "nan", "1"}, 2, "from 0 to 100000"},
      {{"simulate", Path("new.pcap"), "--frames", "-3"}, 2, "from 1 to 1000000000"},
      {{"simulate", Path("new.pcap"), "--seed", "-1"}, 2, "from 0 to 4294967295"},
      {{"simulate", Path("new.pcap"), "--drop", "0.1"}, 2, "requires --live"},
      {{"simulate", cut, "--model", "NV2"}, 1, "exists already"},
      {{"record", cut, "--port", "1"}, 1, "exists already"},
      {{"replay", cut, "--model", "NV2"}, 1, "x ProcessMsopPacket MSOP_LEN:1236 size:1360"},
      {{"replay", street, "--model", "TS4B", "--frames", "1"}, 1, "frames 0 to 0"},
      {{"replay", street, "--model", "NV2"}, 1, "not of the model NV2"},
      {{"replay", street, "--model", "TS4B", "--calib", Path("none")}, 1, "calibration folder"},
      {{"replay", street, "--model", "TS4B", "--calib", Path("bare")}, 1, "no file has 'weight'"},
      {{"replay", street, "--model", "TS4B", "--calib", Path("bare"), "--uncalibrated"}, 0, "uncalibrated"},
  };
  for (const auto& bad : cases) {
    ToolProcess tool(bad.arguments);
    EXPECT_EQ(tool.Wait(), bad.exit_code) << bad.reason;
    EXPECT_NE(tool.errors().find(bad.reason), std::string::npos) << bad.reason << ":\n" << tool.errors();
  }
  EXPECT_FALSE(fs::exists(Path("out")));
}

TEST_F(ToolTest, CtrlCLeavesOnlyCompleteFiles) {
  Record("street", TS4B, 2);
  std::string frames = "0-1";
  for (int i = 0; i < 2000; ++i) {
    frames += ",0-1";  // minutes of work
  }
  ToolProcess tool({"replay", Path("street.pcap"), "--model", "TS4B", "--calib", Path("street"), "--out",
                    Path("out"), "--format", "csv", "--frames", frames});
  ASSERT_TRUE(tool.WaitForError("  24576 "));
  tool.Signal(SIGINT);
  tool.Signal(SIGTERM);  // the same wish, passed on by a parent
  EXPECT_EQ(tool.Wait(), 1);
  EXPECT_NE(tool.errors().find("interrupted"), std::string::npos);
  for (const std::string& name : Names(Path("out"))) {
    EXPECT_EQ(fs::path(name).extension(), ".csv");
    EXPECT_EQ(ParseCsv(Path("out/" + name)).size(), 24576U);
  }
}

TEST_F(ToolTest, AFullDiskLeavesNoHalfFile) {
  Record("street", TS4B, 1);
  fs::create_directory(Path("out"));
  const std::vector<std::string> cases[] = {
      {"replay", Path("street.pcap"), "--model", "TS4B", "--calib", Path("street"), "--out", Path("out")},
      {"simulate", Path("out/new.pcap"), "--model", "NV2", "--frames", "2"}};
  for (const auto& arguments : cases) {
    ToolProcess tool(arguments, {.largest_file = 100'000});
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_NE(tool.errors().find("cannot write"), std::string::npos) << tool.errors();
    EXPECT_TRUE(Names(Path("out")).empty());
  }
}

TEST_F(ToolTest, RenderDrawsPicturesFromRecordingsAndClouds) {
  Record("street", TS4B, 1);
  ToolProcess replay({"replay", Path("street.pcap"), "--model", "TS4B", "--calib", Path("street"), "--frames",
                      "0", "--out", Path("")});
  ASSERT_EQ(replay.Wait(), 0) << replay.errors();
  ToolProcess from_recording(
      {"render", Path("street.pcap"), "--model", "TS4B", "--calib", Path("street"), "--out", Path("a")});
  ASSERT_EQ(from_recording.Wait(), 0) << from_recording.errors();
  ToolProcess from_cloud({"render", Path("frame_0000.pcd"), "--out", Path("b")});
  ASSERT_EQ(from_cloud.Wait(), 0) << from_cloud.errors();

  for (const char* view : {"frame_0000_birdseye.png", "frame_0000_range.png"}) {
    std::vector<std::vector<uint32_t>> pictures;
    for (const std::string source : {"a/", "b/"}) {
      png_image image = {};
      image.version = PNG_IMAGE_VERSION;
      ASSERT_NE(png_image_begin_read_from_file(&image, Path(source + view).c_str()), 0);
      image.format = PNG_FORMAT_RGBA;
      std::vector<uint32_t> pixels(size_t{image.width} * image.height);
      ASSERT_NE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr), 0);
      EXPECT_GT(image.width, 800U);
      // Below the titles, which differ, there are many colours and they are the same from either source.
      pixels.erase(pixels.begin(), pixels.begin() + 80 * image.width);
      EXPECT_GT(std::set<uint32_t>(pixels.begin(), pixels.end()).size(), 100U);
      pictures.push_back(pixels);
    }
    EXPECT_EQ(pictures[0], pictures[1]) << view;
  }
}

TEST_F(ToolTest, RenderTakesOfACloudWhatItHoldsNotWhatItSays) {
  const std::string four = "FIELDS x y z intensity\nSIZE 4 4 4 4\nTYPE F F F F\nCOUNT 1 1 1 1\n";
  const std::string end = "DATA binary\n", one = four + "POINTS 1\n" + end, point(16, '\0');
  std::string large = "FIELDS x y z intensity", sizes = "\nSIZE 4 4 4 4", types = "\nTYPE F F F F",
              counts = "\nCOUNT 1 1 1 1";
  for (int i = 0; i < 1000; ++i) {
    large += " f";
    sizes += " 8";
    types += " F";
    counts += " 10000";
  }
  const struct {
    std::string bytes;
    int exit_code;
    std::string reason;
    uintmax_t size = 0;  // 0: as written
  } cases[] = {
      {one + point, 0, "bare"},
      {std::string(65'000, '#') + '\n' + one + point, 0, "bare"},
      {std::string(65'536, '#') + '\n' + one + point, 1, "its header has more than 65536 bytes"},
      {large + sizes + types + counts + "\nPOINTS 0\n" + end, 1,
       "its points have more than 65536 bytes each"},
      {four + "COUNT 1 1 1 65537\nPOINTS 1\n" + end, 1, "field 4 of its points has an impossible size"},
      {four + "POINTS 18446744073709551615\n" + end + point, 1, "before its 18446744073709551615 points do"},
      {one + point.substr(1), 1, "it ends before its 1 points do"},
      {four + "POINTS 16777217\n" + end, 1, "it holds more than 16777216 points", uintmax_t{300} << 20},
      {four + "POINTS -1\n" + end + point, 1, "no numbers where numbers belong"},
      {four + "POINTS 1\n", 1, "no uncompressed binary PCD file"},
      {four + "FIELDS x y z\nPOINTS 1\n" + end + point, 1, "no uncompressed binary PCD file"},
      {"FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nCOUNT 1 1 1\nPOINTS 1\n" + end + point, 1,
       "no field 'intensity'"},
      {one + "\xFF\xFF\x7F\x7F" + point.substr(4), 0, "bare"},  // 3.4e38 m away
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    std::ofstream(Path("cloud.pcd"), std::ios::binary) << c.bytes;
    if (c.size != 0) fs::resize_file(Path("cloud.pcd"), c.size);
    ToolProcess tool({"render", Path("cloud.pcd"), "--out", Path("pictures"), "--force"});
    EXPECT_EQ(tool.Wait(), c.exit_code) << tool.errors();
    EXPECT_NE(tool.errors().find(c.reason), std::string::npos) << tool.errors();
  }
  fs::create_symlink("/dev/null", Path("device.pcd"));
  ToolProcess tool({"render", Path("device.pcd")});
  EXPECT_EQ(tool.Wait(), 1);
  EXPECT_NE(tool.errors().find("it is no regular file"), std::string::npos) << tool.errors();
}

class LiveToolTest : public ToolTest {
 protected:
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
  const orva::test::UdpPeer peer_;
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
