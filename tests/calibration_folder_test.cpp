// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "param/calibration_folder.h"
#include "param/filter_algorithm.h"
#include "param/param_service.h"
#include "support/console_capture.h"
#include "support/temp_folder.h"

namespace orva::test {
namespace {

using tevoro::lidar::CheckParam;
using tevoro::lidar::ParamService;

/// Lines of eight numbers, each line behind `label`: first, first + 1, ...
std::string Table(size_t count, int first, const std::string& label = "") {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += i % 8 == 0 ? label : ",";
    text += std::to_string(first + static_cast<int>(i));
    if (i % 8 == 7) text += '\n';
  }
  return text;
}

using Files = std::vector<std::pair<std::string, size_t>>;  // name, number of values

const Files kExact = {
    {"azimuth.csv", 49152}, {"elevation.csv", 49152}, {"weight.csv", 4}, {"near_filter.csv", 8}};
const Files kFourfold = {
    {"azimuth.csv", 196608}, {"elevation.csv", 196608}, {"weight.csv", 16}, {"near_filter.csv", 32}};

/// `files` with one of them replaced, or one more.
Files With(Files files, const std::string& name, size_t values, size_t replaced = 4) {
  files.resize(std::max(files.size(), replaced + 1));
  files[replaced] = {name, values};
  return files;
}

void WriteFiles(const TempFolder& folder, const Files& files) {
  for (const auto& [name, values] : files) {
    folder.Write(name, Table(values, 10, name.find("weight") != std::string::npos ? "label," : ""));
  }
}

TEST(CalibrationFolder, LoadsExactlyFourFiles) {
  struct Case {
    const char* name;
    LidarType model;
    Files files;
    bool loaded;
    std::string filled;  // fields: a, e, w, n
  };
  const Case cases[] = {
      {"exact", TS4B, kExact, true, "aewn"},
      {"exact, TS4A", TS4A, kExact, false, ""},
      {"fourfold, TS4A", TS4A, kFourfold, true, "aewn"},
      {"fourfold, TS4B", TS4B, kFourfold, true, "aewn"},
      {"fourfold but one value", TS4, With(kFourfold, "azimuth.csv", 196607, 0), false, "ewn"},
      {"near filter short, TS4A", TS4A, With(kFourfold, "near_filter.csv", 31, 3), false, "aew"},
      {"azimuth short", TS4B, With(kExact, "azimuth.csv", 49151, 0), false, "ewn"},
      {"five successes", TS4B, With(kExact, "weight2.csv", 4), false, "aewn"},
      {"four successes of three", TS4B, With(kExact, "azimuth2.csv", 49152, 3), true, "aew"},
      {"a stranger beside them", TS4B, With(kExact, "README", 3), true, "aewn"},
      {"first keyword counts", TS4B, With(kExact, "elevation_azimuth.csv", 49152, 0), true, "aewn"},
      {"below sub-folders", TS4B, With(kExact, "more/deep/x_elevation_y", 49152, 1), true, "aewn"},
      {"parent folder weight", TS4B, With(kExact, "weight/near_filter.csv", 8, 3), true, "aew"},
      {"empty file", TS4B, With(kExact, "elevation.csv", 0, 1), false, "awn"},
      {"NV2", NV2, kExact, false, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const TempFolder folder;
    WriteFiles(folder, c.files);
    ParamService service;
    const ConsoleCapture console;
    EXPECT_EQ(service.LoadCheckFolder(c.model, folder.Path()), c.loaded);
    if (c.model == NV2) {
      EXPECT_EQ(console.Text(), "") << "the folder is not even listed";
      continue;
    }
    const CheckParam& check = *service.GetCheckParam(c.model);
    std::string filled;
    if (check.azimuth[0] == 10.0F && check.azimuth[49151] == 10.0F + 49151) filled += 'a';
    if (check.elevation[0] == 10.0F && check.elevation[49151] == 10.0F + 49151) filled += 'e';
    if (check.weight[0] == 10.0F && check.weight[3] == 13.0F) filled += 'w';
    if (check.near_filter[0] == 10.0F && check.near_filter[7] == 17.0F) filled += 'n';
    EXPECT_EQ(filled, c.filled);
    if (c.filled.find('n') == std::string::npos)
      EXPECT_EQ(+check.near_filter[6], 2.0F) << "keeps its default";
  }
}

TEST(CalibrationFolder, SaysWhatItReads) {
  struct Case {
    LidarType model;
    const char* file;
    std::string said;
  };
  const Case cases[] = {
      {TS4B, "azimuth.csv", "azimuth\nlist.size():5 size:49152\n"},
      {TS6, "elevation.csv", "elevation\nlist.size():5 size:49152\n"},
      {TS4A, "azimuth.csv", "azimuth\n"},
      {TS4A, "elevation.csv", "elevation\nlist.size():5 size:196608\n"},
      {TS4B, "weight.csv", ""},
  };
  for (const Case& c : cases) {
    const TempFolder folder;
    folder.Write(std::string("a\"b\\c/") + c.file, Table(5, 0));
    ParamService service;
    const ConsoleCapture console;
    EXPECT_FALSE(service.LoadCheckFolder(c.model, folder.Path()));
    EXPECT_EQ(console.Text(), "文件: \"" + folder.Path() + "/a\\\"b\\\\c/" + c.file + "\"\n" + c.said)
        << c.model;
  }
}

TEST(CalibrationFolder, IsNotHeldUpByPipes) {
  const TempFolder folder;
  WriteFiles(folder, kExact);
  ASSERT_EQ(mkfifo(folder.Path("azimuth_pipe").c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", folder.Path("elevation_device"));
  std::filesystem::create_symlink("nowhere", folder.Path("weight_dangling"));
  ParamService service;
  const ConsoleCapture console;
  EXPECT_TRUE(service.LoadCheckFolder(TS4B, folder.Path()));
  EXPECT_NE(console.Text().find("azimuth_pipe\"\n"), std::string::npos) << "is listed";
  EXPECT_NE(console.Text().find("azimuth\nlist.size():0 size:49152\n"), std::string::npos);
}

TEST(CalibrationText, NumbersAndSteps) {
  const TempFolder folder;
  struct Case {
    std::string text;
    size_t start, step;
    std::vector<float> values;
  };
  const Case cases[] = {
      {"w,1.5,2.5\n", 1, 1, {1.5F, 2.5F}},
      {"abc,3.5e-1x, \t-7,,0x10\n\n\n8,\r\n,9\r", 0, 1, {0, 0.35F, -7, 0, 16, 8, 0, 0, 9}},
      {"1,2,3,4,5\n6,7", 1, 2, {2, 4, 7}},
      {"only,\n", 1, 1, {}},
      {"nan,inf,-inf,1e99,1e-99", 0, 1, {NAN, INFINITY, -INFINITY, INFINITY, 0}},
      {std::string("1\0002,3\n", 6), 0, 1, {1, 3}},
      {"", 0, 1, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    std::vector<float> values = {42.0F};  // is appended to
    tevoro::lidar::LoadFile(folder.Write("file", c.text), values, c.start, c.step);
    ASSERT_EQ(values.size(), c.values.size() + 1);
    for (size_t i = 0; i < c.values.size(); ++i) {
      EXPECT_TRUE(values[i + 1] == c.values[i] || (std::isnan(values[i + 1]) && std::isnan(c.values[i])))
          << i;
    }
  }
}

TEST(CalibrationText, WhatWorkOnCalibrationsUses) {
  EXPECT_EQ(tevoro::lidar::SplitString("a,,b,", ','), (std::vector<std::string>{"a", "", "b"}));
  EXPECT_EQ(tevoro::lidar::CalculateVariance({1.0F, 2.0F, 3.0F, 6.0F}), 3.5F);
  const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
  EXPECT_NEAR(tevoro::lidar::GetSystemTime(), now.count(), 60.0);
}

TEST(CalibrationText, DecimalPointInEveryLocale) {
  const TempFolder folder;
  const std::string file = folder.Write("file", "1.5,2.25");
  const std::string command = "localedef -i de_DE -f UTF-8 " + folder.Path("de_DE.UTF-8") + " 2>/dev/null";
  if (std::system(command.c_str()) != 0) GTEST_SKIP() << "localedef cannot build a locale";
  setenv("LOCPATH", folder.Path().c_str(), 1);
  ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
  EXPECT_EQ(std::strtod("1.5", nullptr), 1.0) << "the locale has a comma";
  std::vector<float> values;
  tevoro::lidar::LoadFile(file, values, 0, 1);
  std::setlocale(LC_ALL, "C");
  unsetenv("LOCPATH");
  EXPECT_EQ(values, (std::vector<float>{1.5F, 2.25F}));
}

/// A file of one line takes no memory to speak of, nor do values that nobody uses.
TEST(CalibrationFolder, ReadsALineOfAnyLength) {
  constexpr size_t kNumbers = 40'000'000;
  const TempFolder folder;
  {
    std::ofstream file(folder.Path("azimuth.csv"));
    for (size_t i = 0; i < kNumbers; i += 1'000'000) file << "1" << std::string(999'999, ',');
    file << std::string(1 << 26, '7');
  }
  const auto peak = [] {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
  };
  ParamService service;
  const long before = peak();
  EXPECT_FALSE(service.LoadCheckFolder(TS4B, folder.Path()));
  EXPECT_LT(peak() - before, 16 * 1024) << "KiB";
}

}  // namespace
}  // namespace orva::test
