// SPDX-License-Identifier: Apache-2.0
//
// A committed recording of one frame must give the same bits on every machine and with every compiler. The
// digest beside it came from the transcription of the model's rules. A deliberate change of what a frame
// contains: the failure shows the new digest.
#include <gtest/gtest.h>

#include <fstream>

#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/player.h"

namespace orva::test {
namespace {

/// FNV-1a over every field of a cloud.
class Digest {
 public:
  template <typename... Values>
  void Add(const Values&... values) {
    (AddBytes(&values, sizeof(values)), ...);
  }
  std::string Text() const {
    char text[17];
    std::snprintf(text, sizeof(text), "%016lx", static_cast<unsigned long>(hash_));
    return text;
  }

 private:
  void AddBytes(const void* value, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(value);
    for (size_t i = 0; i < size; ++i) hash_ = (hash_ ^ bytes[i]) * 0x100000001B3ULL;
  }
  uint64_t hash_ = 0xCBF29CE484222325ULL;
};

/// Angles and weights that text holds exactly.
std::unique_ptr<CheckParam> GoldenCalibration() {
  auto check = std::make_unique<CheckParam>();
  for (size_t code = 0; code < CALIB_TABLE_ENTRIES; ++code) {
    const auto line = static_cast<float>(code / 256);
    const auto column = static_cast<float>(code % 256);
    check->azimuth[code] = -60.0F + column * 0.9375F + line * 0.015625F;
    check->elevation[code] = 45.0F - line * 0.46875F + column * 0.0078125F;
  }
  SetWeights(*check, {0.125F, 0.00390625F, -0.015625F, 0.25F},
             {96.0F, 12.0F, 160.0F, 4.0F, 5.0F, 5.0F, 2.0F, 0.0F});
  return check;
}

TEST(Golden, OneFrameOfTS4B) {
  const TempFolder folder;
  WriteCalibration(folder, *GoldenCalibration());
  DriverParam param = ReplayParam(TS4B, ORVA_TEST_DATA "/golden_ts4b.pcap");
  param.calibration_param.calib_folder = folder.Path();
  param.decoder_param = {1.0F,  180.0F, -58.0F, 55.0F, -35.0F, 44.0F, true,
                         1.25F, -0.5F,  2.0F,   1.5F,  -3.0F,  30.0F};
  const ConsoleCapture quiet;
  Player<PointCloud<PointSource>> player;
  ASSERT_EQ(player.Open(param), 2);
  const auto cloud = player.Play(0);
  ASSERT_NE(cloud, nullptr);
  Digest digest;
  digest.Add(cloud->timestamp, cloud->status_word, cloud->temperature_a, cloud->temperature_b);
  digest.Add(cloud->status_byte, uint64_t{cloud->points.size()});
  for (const PointSource& point : cloud->points) {
    digest.Add(point.x, point.y, point.z, point.intensity, point.label, point.timestamp);
    digest.Add(point.source_distance, point.source_reserved);
  }
  std::string expected;
  std::ifstream(ORVA_TEST_DATA "/golden_ts4b.digest") >> expected;
  EXPECT_EQ(digest.Text(), expected);
}

}  // namespace
}  // namespace orva::test
