// SPDX-License-Identifier: Apache-2.0
//
// What the tool's rooms do where a process shows it late or never.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <utility>

#include "captures/record_files.h"
#include "messages/from_driver.h"
#include "metrics/live_reports.h"
#include "sessions/pacing.h"
#include "sessions/packet_losses.h"
#include "support/console_capture.h"
#include "support/temp_folder.h"

namespace orva {

namespace fs = std::filesystem;
using test::ConsoleCapture;
using testing::HasSubstr;
using testing::Not;

namespace {
std::string served;
}  // namespace

// In the place of the server.
struct MetricsServer::Daemon {};
MetricsServer::MetricsServer(const MetricsAddress&) {}
MetricsServer::~MetricsServer() = default;
void MetricsServer::Publish(std::string text) {
  served = std::move(text);
}

namespace {

TEST(LiveReports, ServeNoFailedSensorAndTellOfMemory) {
  const ConsoleCapture lines, words(STDERR_FILENO);
  LiveReports reports({.json = true, .metrics = MetricsAddress{}});
  SensorCounts sensor{"left", "NV2", {}, {}};
  sensor.statistics.out_of_memory = 3;
  for (const char* name : {"left", "right"}) {
    sensor.name = name;
    reports.Status(sensor, 1.0, false);
  }
  EXPECT_THAT(lines.Text(), HasSubstr("\"out_of_memory\":3"));
  EXPECT_THAT(served, HasSubstr("sensor=\"left\""));
  reports.Failed("left", "a cable");
  EXPECT_THAT(served, Not(HasSubstr("sensor=\"left\"")));
  EXPECT_THAT(served, HasSubstr("{model=\"NV2\",sensor=\"right\",reason=\"memory\"} 3\n"));
}

TEST(Losses, AreToldByKind) {
  DriverStatistics statistics;
  EXPECT_EQ(LossText(statistics), "");
  statistics.received = statistics.discarded = 5;
  statistics.out_of_memory = 3;
  EXPECT_EQ(LossText(statistics), "lost: 5 discarded from the queue, 3 for want of memory");
  statistics.discarded = 0;
  EXPECT_EQ(messages::ToDiagnostics(statistics, {}, 1.0, {}, {}).status.front().level,
            messages::DiagnosticStatus::WARN);
}

TEST(Pace, OutlastsAnyStepOfTheRecordedTimes) {
  constexpr int64_t kYear = 31'536'000'000'000'000;
  const struct {
    int64_t from, to;
    double rate;
  } cases[] = {{0, 56 * kYear, 0.1},
               {0, 56 * kYear, 0.001},
               {std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max(), 1.0}};
  for (const auto& c : cases) {
    Pace pace(c.rate);
    EXPECT_EQ(pace.Due(c.from, kYear), kYear);
    const int64_t due = pace.Due(c.to, kYear);
    EXPECT_GT(due, 10 * kYear);
    pace.Restart();
    EXPECT_GT(pace.Due(c.from, kYear), due);
  }
}

TEST(RecordFiles, TryAgainToRemoveAndSayOnceThatTheyCannot) {
  const test::TempFolder folder;
  const ConsoleCapture words(STDERR_FILENO);
  RecordFiles files(folder.Path("a.pcap"), {.megabytes = 0.0005, .kept = 2}, {});
  const auto write = [&] { files.Write({std::vector<uint8_t>(300), 0}); };  // a file each
  const auto name = [&](int number) { return folder.Path("a_000" + std::to_string(number) + ".pcap"); };
  write();
  write();
  // It cannot be removed any more.
  fs::remove(name(0));
  fs::create_directories(name(0) + "/x");
  for (int i = 0; i < 3; ++i) write();
  EXPECT_TRUE(fs::exists(name(0)));
  EXPECT_FALSE(fs::exists(name(2))) << "the others go";
  EXPECT_EQ(test::Occurrences(words.Text(), name(0) + " cannot be removed: "), 1);
  EXPECT_EQ(test::Occurrences(words.Text(), "cannot be removed"), 1);
  fs::remove(name(0) + "/x");
  write();
  EXPECT_FALSE(fs::exists(name(0)));
}

}  // namespace
}  // namespace orva
