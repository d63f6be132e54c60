// SPDX-License-Identifier: Apache-2.0
//
// The orva program, run as a process on recordings of the simulated sensor.
#include <gtest/gtest.h>
#include <png.h>
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
#include <string>
#include <thread>
#include <vector>

#include "sim/capture_writer.h"
#include "sim/sensor.h"
#include "support/result_files.h"
#include "support/temp_folder.h"
#include "support/tool_process.h"

namespace {

namespace fs = std::filesystem;
using orva::test::FilePoint;
using orva::test::Names;
using orva::test::ParseBinary;
using orva::test::ParseCsv;
using orva::test::ReadFile;
using orva::test::ToolProcess;

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
      {{"live", "--model", "NV2", "--port", "7000", "--sensor", "127.0.0.1", "--command-port", "8",
        "--command-local-port", "7000", "--duration", "1"},
       2,
       "another port than --port"},
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

}  // namespace
