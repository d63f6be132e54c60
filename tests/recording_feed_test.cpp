// SPDX-License-Identifier: Apache-2.0
#include "feeds/recording_feed.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "sim/capture_writer.h"
#include "sim/sensor.h"
#include "support/loopback.h"
#include "support/temp_folder.h"

namespace orva {
namespace {

TEST(RecordingFeedTest, OutlivesACutRecordingAndShowsWhatIsLeft) {
  const test::TempFolder folder;
  DriverParam param;
  param.input_type = PCAP;
  param.lidar_type = NV2;
  param.input_param.pcap_path = folder.Path("cut.pcap");
  param.input_param.msop_port = sim::CaptureOptions().destination_port;
  uint64_t left = 0;  ///< bytes of the frames 0 to 3
  {
    sim::Sensor sensor({.model = NV2, .frames = 8});
    sim::CaptureWriter file(param.input_param.pcap_path);
    sim::TimedPacket packet;
    for (uint32_t i = 0; sensor.Next(packet); ++i) {
      file.Write(packet);
      if (i == 4 * sensor.PacketsPerFrame()) left = file.Size();
    }
    file.Finish();
  }
  RecordingFeed feed(param, [] {});
  ASSERT_EQ(feed.subject().frames, 8U);
  const auto shows = [&feed](uint32_t frame) {
    feed.Want(1, frame, view::Clock::now());
    return test::Eventually([&feed] { return feed.TakeWanted(1) != nullptr; });
  };
  EXPECT_TRUE(shows(1));
  std::filesystem::resize_file(param.input_param.pcap_path, left);
  feed.Want(1, 5, view::Clock::now());
  EXPECT_TRUE(test::Eventually([&feed] { return feed.status().condition.code == "no-frame"; }));
  EXPECT_NE(feed.status().condition.text.find("frame 5 is not there"), std::string::npos);
  EXPECT_TRUE(shows(2)) << "that is there still";
}

}  // namespace
}  // namespace orva
