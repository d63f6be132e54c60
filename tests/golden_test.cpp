// SPDX-License-Identifier: Apache-2.0
//
// A committed recording of one frame must give the same bits on every machine and with every compiler. The
// digests beside it come from the transcription; DISABLED_Write makes both files anew, for a deliberate
// change of what a frame contains.
#include <gtest/gtest.h>

#include <fstream>

#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/player.h"
#include "support/recording.h"

namespace orva::test {
namespace {

const std::string kCapture = ORVA_TEST_DATA "/golden_ts4b.pcap";
const std::string kDigests = ORVA_TEST_DATA "/golden_ts4b.digests";

/// FNV-1a over every field of a cloud.
class Digest {
 public:
  template <typename Value>
  Digest& Add(const Value& value) {
    unsigned char bytes[sizeof(Value)];
    std::memcpy(bytes, &value, sizeof(Value));
    for (const unsigned char byte : bytes) hash_ = (hash_ ^ byte) * 0x100000001B3ULL;
    return *this;
  }
  template <typename T>
  std::string Of(const PointCloud<T>& cloud) {
    Add(cloud.timestamp).Add(cloud.status_word).Add(cloud.temperature_a).Add(cloud.temperature_b);
    Add(cloud.status_byte).Add(static_cast<uint64_t>(cloud.points.size()));
    for (const T& point : cloud.points) {
      Add(point.x).Add(point.y).Add(point.z).Add(point.intensity).Add(point.label);
      if constexpr (!std::is_same_v<T, Point>) Add(point.timestamp);
      if constexpr (std::is_same_v<T, PointSource>) Add(point.source_distance).Add(point.source_reserved);
    }
    char text[17];
    std::snprintf(text, sizeof(text), "%016lx", static_cast<unsigned long>(hash_));
    return text;
  }

 private:
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

DriverParam GoldenParam() {
  DriverParam param = ReplayParam(TS4B, kCapture);
  param.decoder_param = {1.0F,  180.0F, -58.0F, 55.0F, -35.0F, 44.0F, true,
                         1.25F, -0.5F,  2.0F,   1.5F,  -3.0F,  30.0F};
  return param;
}

/// The records of the capture. It holds nothing but packets of one length.
std::vector<Packet> GoldenPackets() {
  const Bytes capture = ReadBytes(kCapture);
  std::vector<Packet> packets;
  for (size_t at = 24 + 16 + 42; at < capture.size(); at += 16 + 42 + 1360) {
    packets.emplace_back(TS4B);
    std::copy_n(capture.begin() + static_cast<long>(at), 1360, packets.back().data());
  }
  return packets;
}

template <typename T>
std::string ReferenceDigest() {
  const std::vector<Packet> packets = GoldenPackets();
  ReferencePlayer<PointCloud<T>> reference(TS4B, GoldenParam().decoder_param, packets);
  reference.decoder->Update(*GoldenCalibration());
  reference.Play(0);
  return Digest().Of(*reference.clouds.at(0));
}

template <typename T>
std::string DriverDigest() {
  const TempFolder folder;
  WriteCalibration(folder, *GoldenCalibration());
  DriverParam param = GoldenParam();
  param.calibration_param.calib_folder = folder.Path();
  const ConsoleCapture quiet;
  Player<PointCloud<T>> player;
  if (player.Open(param) != 2) return "";
  const auto cloud = player.Play(0);
  return cloud == nullptr ? "" : Digest().Of(*cloud);
}

TEST(Golden, OneFrameOfTS4B) {
  std::string point, time, source;
  std::ifstream(kDigests) >> point >> time >> source;
  const std::string digests = point + ' ' + time + ' ' + source;
  EXPECT_EQ(
      ReferenceDigest<Point>() + ' ' + ReferenceDigest<PointTime>() + ' ' + ReferenceDigest<PointSource>(),
      digests);
  EXPECT_EQ(DriverDigest<Point>() + ' ' + DriverDigest<PointTime>() + ' ' + DriverDigest<PointSource>(),
            digests);
}

TEST(Golden, DISABLED_Write) {
  Random random(33);
  std::vector<Packet> packets;
  for (unsigned i = 0; i < 24; ++i) {
    packets.push_back(PlausiblePacket(random, TS4B));
    packets.back().Code(i, 192 + i, 5 * i);  // a code off the grid
  }
  packets.back().FrameEnd(31);
  WriteRecording(kCapture, packets);
  std::ofstream(kDigests) << ReferenceDigest<Point>() << '\n'
                          << ReferenceDigest<PointTime>() << '\n'
                          << ReferenceDigest<PointSource>() << '\n';
}

}  // namespace
}  // namespace orva::test
