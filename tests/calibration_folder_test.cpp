// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "param/calibration_folder.h"
#include "param/filter_algorithm.h"
#include "param/param_service.h"
#include "support/console_capture.h"
#include "support/temp_folder.h"

namespace orva::test {
namespace {

using tevoro::lidar::CALIB_TABLE_ENTRIES;
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

struct File {
  std::string name;
  size_t values;
};

struct FolderCase {
  const char* name;
  LidarType model;
  std::vector<File> files;
  bool loaded;
  bool azimuth, elevation, weight, near_filter;  ///< which fields were filled
};

const std::vector<File> kExact = {
    {"azimuth.csv", 49152}, {"elevation.csv", 49152}, {"weight.csv", 4}, {"near_filter.csv", 8}};
const std::vector<File> kFourfold = {
    {"azimuth.csv", 196608}, {"elevation.csv", 196608}, {"weight.csv", 16}, {"near_filter.csv", 32}};

std::vector<File> With(std::vector<File> files, const File& file, size_t replaced = SIZE_MAX) {
  if (replaced < files.size()) {
    files[replaced] = file;
  } else {
    files.push_back(file);
  }
  return files;
}

TEST(CalibrationFolder, LoadsExactlyFourFiles) {
  const FolderCase cases[] = {
      {"exact", TS4B, kExact, true, true, true, true, true},
      {"exact, TS6", TS6, kExact, true, true, true, true, true},
      {"fourfold, TS4A", TS4A, kFourfold, true, true, true, true, true},
      {"fourfold, TS4", TS4, kFourfold, true, true, true, true, true},
      {"fourfold, TS4B", TS4B, kFourfold, true, true, true, true, true},
      {"exact, TS4A", TS4A, kExact, false, false, false, false, false},
      {"tables short by one", TS4, With(kFourfold, {"azimuth.csv", 196607}, 0), false, false, true, true,
       true},
      {"azimuth short", TS4B, With(kExact, {"azimuth.csv", 49151}, 0), false, false, true, true, true},
      {"near filter short", TS4B, With(kExact, {"near_filter.csv", 7}, 3), false, true, true, true, false},
      {"weight short, TS4A", TS4A, With(kFourfold, {"weight.csv", 15}, 2), false, true, true, false, true},
      {"near filter short, TS4A", TS4A, With(kFourfold, {"near_filter.csv", 31}, 3), false, true, true, true,
       false},
      {"five successes", TS4B, With(kExact, {"weight2.csv", 4}), false, true, true, true, true},
      {"four successes of three", TS4B, With(kExact, {"azimuth2.csv", 49152}, 3), true, true, true, true,
       false},
      {"a stranger beside them", TS4B, With(kExact, {"README", 3}), true, true, true, true, true},
      {"first keyword counts", TS4B, With(kExact, {"elevation_azimuth.csv", 49152}, 0), true, true, true,
       true, true},
      {"below sub-folders", TS4B, With(kExact, {"more/deep/x_elevation_y", 49152}, 1), true, true, true, true,
       true},
      {"parent folder weight", TS4B, With(kExact, {"weight/near_filter.csv", 8}, 3), true, true, true, true,
       false},
      {"empty file", TS4B, With(kExact, {"elevation.csv", 0}, 1), false, true, false, true, true},
      {"no file", TS6, {}, false, false, false, false, false},
      {"KR7", KR7, kExact, false, false, false, false, false},
      {"NV2", NV2, kExact, false, false, false, false, false},
      {"no model", static_cast<LidarType>(2), kExact, false, false, false, false, false},
  };
  for (const FolderCase& c : cases) {
    SCOPED_TRACE(c.name);
    const TempFolder folder;
    for (const File& file : c.files) {
      const bool labelled = file.name.find("weight") != std::string::npos;
      folder.Write(file.name, Table(file.values, 10, labelled ? "label," : ""));
    }
    ParamService service;
    bool loaded = false;
    {
      const ConsoleCapture quiet;
      loaded = service.LoadCheckFolder(c.model, folder.Path());
      if (c.model == KR7 || c.model == NV2) EXPECT_EQ(quiet.Text(), "") << "the folder is not even listed";
    }
    EXPECT_EQ(loaded, c.loaded);
    if (c.model == KR7 || c.model == NV2 || service.GetCheckParam(c.model) == nullptr) continue;
    const CheckParam& check = *service.GetCheckParam(c.model);
    const auto filled = [](float value) { return value >= 10.0F; };
    EXPECT_EQ(filled(check.azimuth[0]), c.azimuth);
    EXPECT_EQ(filled(check.elevation[0]), c.elevation);
    EXPECT_EQ(filled(check.weight[0]), c.weight);
    EXPECT_EQ(filled(check.near_filter[0]), c.near_filter);
    if (c.azimuth) EXPECT_EQ(+check.azimuth[CALIB_TABLE_ENTRIES - 1], 10.0F + CALIB_TABLE_ENTRIES - 1);
    if (c.near_filter) EXPECT_EQ(+check.near_filter[7], 17.0F);
    if (!c.near_filter) EXPECT_EQ(+check.near_filter[6], 2.0F) << "keeps its default";
    if (c.weight && c.loaded) EXPECT_EQ(+check.weight[3], 13.0F) << "the label is skipped";
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
      {TS4, "elevation.csv", ""},
      {TS4B, "weight.csv", ""},
      {TS6, "near_filter.csv", ""},
      {TS4B, "notes.txt", ""},
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

TEST(CalibrationFolder, LeavesErrorsOfTheFileSystemToItsCaller) {
  const TempFolder folder;
  folder.Write("loop/azimuth.csv", "1");
  std::filesystem::create_directory_symlink(".", folder.Path("loop/again"));
  const std::string file = folder.Write("file", "1");
  ParamService service;
  const ConsoleCapture quiet;
  for (const std::string& path : {folder.Path("missing"), file, folder.Path("loop"), std::string()}) {
    EXPECT_THROW(service.LoadCheckFolder(TS4B, path), std::filesystem::filesystem_error) << path;
  }
}

TEST(CalibrationFolder, IsNotHeldUpByPipes) {
  const TempFolder folder;
  for (const File& file : kExact)
    folder.Write(file.name, Table(file.values, 10, file.values == 4 ? "w," : ""));
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
  using Pieces = std::vector<std::string>;
  EXPECT_EQ(tevoro::lidar::SplitString("a,,b,", ','), (Pieces{"a", "", "b"}));
  EXPECT_EQ(tevoro::lidar::SplitString(",", ','), (Pieces{""}));
  EXPECT_EQ(tevoro::lidar::SplitString("", ','), Pieces());
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

TEST(CalibrationText, SmallHelpers) {
  EXPECT_EQ(tevoro::lidar::CalculateVariance({1.0F, 3.0F, 5.0F, 7.0F}), 5.0F);
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  EXPECT_NEAR(tevoro::lidar::GetSystemTime(), static_cast<double>(now.tv_sec), 5.0);
}

TEST(ParamService, RecordsAndDefaults) {
  ParamService service;
  for (const LidarType model : {TS4, TS4A, TS4B, TS6}) {
    const CheckParam& check = *service.GetCheckParam(model);
    const float filter[8] = {0, 0, 0, 0, 5, 5, 2, 0};
    EXPECT_EQ(std::memcmp(filter, &check.near_filter, sizeof(filter)), 0);
    EXPECT_EQ(check.azimuth[49151] + check.elevation[0] + check.weight[3], 0.0F);
  }
  EXPECT_NE(service.GetCheckParam(KR7), service.GetCheckParam(NV2));
  EXPECT_EQ(*reinterpret_cast<const uint8_t*>(service.GetCheckParam(KR7)), 0);
  EXPECT_EQ(*reinterpret_cast<const uint8_t*>(service.GetCheckParam(NV2)), 0);
  EXPECT_NE(service.GetCheckParam(TS4), service.GetCheckParam(TS4A));
  EXPECT_EQ(service.GetCheckParam(static_cast<LidarType>(2)), nullptr);
}

}  // namespace
}  // namespace orva::test
