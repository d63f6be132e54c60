// SPDX-License-Identifier: Apache-2.0
//
// What writers do with targets that are no files, with disks that fail late, and with runs that end early.
#include "formats/output_file.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "formats/imu_file.h"
#include "sim/capture_writer.h"
#include "support/temp_folder.h"

namespace {
int close_error = 0;  ///< of every close in this program; 0: as it really went

template <typename Argument>
int Close(const char* name, Argument what) {
  const int result = reinterpret_cast<int (*)(Argument)>(dlsym(RTLD_NEXT, name))(what);
  if (close_error == 0) return result;
  errno = close_error;
  return EOF;
}
}  // namespace

extern "C" int fclose(std::FILE* file) {
  return Close("fclose", file);
}
extern "C" int close(int descriptor) {
  return Close("close", descriptor);
}

namespace orva {
namespace {

namespace fs = std::filesystem;

const struct {
  const char* name;
  void (*write)(const fs::path& path);
  bool stays;  ///< what was written, when the end fails
} kWriters[] = {{"OutputFile",
                 [](const fs::path& path) {
                   OutputFile file(path, Existing::kKeep);
                   file.Write("points\n");
                   file.Commit();
                 },
                 false},
                {"ImuFile",
                 [](const fs::path& path) {
                   ImuFile file(path, Existing::kKeep);
                   file.Write({});
                   file.Commit();
                 },
                 true},
                {"CaptureWriter",
                 [](const fs::path& path) {
                   sim::CaptureWriter file(path);
                   file.Write({{1, 2, 3}, 0});
                   file.Finish();
                 },
                 false}};

class OutputFileTest : public testing::Test {
 protected:
  /// Names in the folder.
  size_t Count() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder_.Path()), {}));
  }
  const test::TempFolder folder_;
  const fs::path path_ = folder_.Path("result");
};

TEST_F(OutputFileTest, APipeStaysAndItsReaderGetsAll) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  for (const auto& writer : kWriters) {
    const int reader = open(path_.c_str(), O_RDONLY | O_NONBLOCK);
    writer.write(path_);
    char bytes[1000];
    EXPECT_GT(read(reader, bytes, sizeof(bytes)), 0) << writer.name;
    close(reader);
    ASSERT_TRUE(fs::is_fifo(path_)) << writer.name;
    EXPECT_EQ(Count(), 1U) << writer.name;
  }
}

TEST_F(OutputFileTest, AFailedCloseIsToldAndLeavesNoResult) {
  for (const auto& writer : kWriters) {
    std::string reason;
    close_error = EDQUOT;
    try {
      writer.write(path_);
    } catch (const std::runtime_error& error) {
      reason = error.what();
    }
    close_error = 0;
    EXPECT_NE(reason.find("quota"), std::string::npos) << writer.name << reason;
    EXPECT_EQ(fs::exists(path_), writer.stays) << writer.name;
    EXPECT_EQ(Count(), writer.stays ? 1U : 0U) << writer.name;
    fs::remove(path_);
  }
}

TEST_F(OutputFileTest, SamplesOfARunThatFailsStayInWholeLines) {
  signal(SIGXFSZ, SIG_IGN);  // so that the write fails instead
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  for (const int samples : {0, 3, 1000}) {
    {
      ImuFile file(path_, Existing::kReplace);
      const rlimit full = {20'000, before.rlim_max};
      setrlimit(RLIMIT_FSIZE, &full);
      try {
        for (int i = 0; i < samples; ++i) file.Write({.timestamp = 1.75e9 + i});
      } catch (const std::runtime_error&) {
        EXPECT_EQ(samples, 1000);
      }
      setrlimit(RLIMIT_FSIZE, &before);
    }
    std::ifstream file(path_);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const auto lines = std::count(text.begin(), text.end(), '\n');
    EXPECT_EQ(Count(), samples > 0 ? 1U : 0U);
    if (samples == 0) continue;
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(std::count(text.begin(), text.end(), ','), 6 * lines);
    if (samples == 3) EXPECT_EQ(lines, 1 + 3);
    if (samples == 1000) EXPECT_GT(text.size(), 19'900U);
  }
}

}  // namespace
}  // namespace orva
