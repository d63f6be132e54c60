// SPDX-License-Identifier: Apache-2.0
//
// The shapes in which replay writes clouds, read back from the PCD files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "sim/capture_writer.h"
#include "sim/sensor.h"
#include "support/tool_process.h"

namespace {

namespace fs = std::filesystem;
using orva::test::ToolProcess;

struct Pcd {
  size_t width = 0, height = 0, nan = 0, origin = 0, valid = 0;
  double least_time = INFINITY, greatest_time = -INFINITY;
};

Pcd Read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  Pcd pcd;
  for (std::string word; file >> word && word != "DATA";) {
    if (word == "WIDTH") file >> pcd.width;
    if (word == "HEIGHT") file >> pcd.height;
  }
  std::string line;
  std::getline(file, line);
  for (char record[28]; file.read(record, sizeof(record));) {
    float at[3];
    double time = 0.0;
    std::memcpy(at, record, sizeof(at));
    std::memcpy(&time, record + 20, sizeof(time));
    const bool nan = std::isnan(at[0]) && std::isnan(at[1]) && std::isnan(at[2]);
    const bool origin = at[0] == 0.0F && at[1] == 0.0F && at[2] == 0.0F;
    ++(nan ? pcd.nan : origin ? pcd.origin : pcd.valid);
    pcd.least_time = std::min(pcd.least_time, time);
    pcd.greatest_time = std::max(pcd.greatest_time, time);
  }
  return pcd;
}

TEST(ToolShape, CloudsComeAsTheyAreWanted) {
  std::string pattern = fs::temp_directory_path() / "orva_shape_XXXXXX";
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  const fs::path folder = pattern;
  const auto record = [&folder](const char* name, LidarType model, size_t missing) {
    orva::sim::Sensor sensor({.model = model, .frames = 3});
    orva::sim::CaptureWriter file(folder / name);
    size_t number = 0;
    for (orva::sim::TimedPacket packet; sensor.Next(packet);) {
      if (number++ != missing) file.Write(packet);
    }
    file.Finish();
  };
  record("grid.pcap", TS4B, 1'000'000);
  record("lossy.pcap", TS4B, 100);
  record("lines.pcap", NV2, 1'000'000);
  constexpr size_t kGrid = 128 * 192;
  enum Wish { kNan, kOrigin, kNone };
  const struct {
    const char* file;
    std::vector<std::string> options;
    size_t width, height;  ///< 0 high: as wide as there are points
    Wish invalid;
    double time;  ///< of all points; NaN: not looked at
  } cases[] = {
      {"grid.pcap", {}, kGrid, 1, kOrigin, 0.0},
      {"grid.pcap", {"--organized"}, 128, 192, kNan, 0.0},
      {"grid.pcap", {"--organized", "--invalid", "zero"}, 128, 192, kOrigin, 0.0},
      {"grid.pcap", {"--invalid", "nan", "--stamp", "capture"}, kGrid, 1, kNan, 1'750'000'000.0},
      {"grid.pcap", {"--valid-only"}, 0, 1, kNone, 0.0},
      {"grid.pcap", {"--invalid", "drop"}, 0, 1, kNone, 0.0},
      {"lossy.pcap", {"--organized"}, kGrid - 32, 1, kNan, 0.0},
      {"lines.pcap", {"--organized", "--stamp", "capture"}, 192, 56, kNan, NAN},
  };
  size_t number = 0;
  for (const auto& wish : cases) {
    const std::string out = folder / std::to_string(number++);
    const bool lines = wish.file == std::string("lines.pcap");
    std::vector<std::string> arguments = {"replay",   folder / wish.file, "--model", lines ? "NV2" : "TS4B",
                                          "--frames", lines ? "1" : "0",  "--out",   out};
    arguments.insert(arguments.end(), wish.options.begin(), wish.options.end());
    ToolProcess tool(arguments);
    EXPECT_EQ(tool.Wait(), 0) << tool.errors();
    const Pcd pcd = Read(fs::path(out) / (lines ? "frame_0001.pcd" : "frame_0000.pcd"));
    const size_t points = pcd.nan + pcd.origin + pcd.valid;
    EXPECT_EQ(pcd.width * pcd.height, points) << number;
    EXPECT_EQ(pcd.height, wish.height) << number;
    if (wish.width != 0) EXPECT_EQ(pcd.width, wish.width) << number;
    EXPECT_GT(pcd.valid, points / 2) << number;
    EXPECT_EQ(pcd.nan > 0, wish.invalid == kNan) << number;
    EXPECT_EQ(pcd.origin > 0, wish.invalid == kOrigin) << number;
    if (!std::isnan(wish.time)) {
      EXPECT_EQ(pcd.least_time, wish.time) << number;
      EXPECT_EQ(pcd.greatest_time, wish.time) << number;
    } else {
      EXPECT_GE(pcd.least_time, 1'750'000'000.0);  // the sensor's own
      EXPECT_GT(pcd.greatest_time, pcd.least_time);
    }
    const bool incomplete = wish.file == std::string("lossy.pcap");
    EXPECT_EQ(tool.errors().find("no rows") != std::string::npos, incomplete) << tool.errors();
  }
  for (const std::vector<std::string>& odd :
       {std::vector<std::string>{"--organized", "--invalid", "drop"}, {"--organized", "--format", "ply"}}) {
    std::vector<std::string> arguments = {"replay", folder / "lines.pcap", "--model", "NV2",
                                          "--out",  folder / "x"};
    arguments.insert(arguments.end(), odd.begin(), odd.end());
    EXPECT_EQ(ToolProcess(arguments).Wait(), 2);
    EXPECT_FALSE(fs::exists(folder / "x"));
  }
  fs::remove_all(folder);
}

}  // namespace
