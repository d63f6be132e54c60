// SPDX-License-Identifier: Apache-2.0
//
// The calibration download: how a stream is put together and parsed, and what the sensor is asked.
#include "online/calibration_loader.h"
#include "param/calibration_stream.h"
#include "sim/calibration_server.h"
#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/player.h"

namespace orva::test {
namespace {

using tevoro::lidar::CalibrationLoader;
using tevoro::lidar::CalibrationStream;
using tevoro::lidar::ParamService;
using tevoro::lidar::WorkerThread;

/// A stream that is fed reply by reply.
struct Download {
  explicit Download(LidarType type = TS4B) : model(type) {}

  int Push(const std::string& reply) {
    return stream.PushData(model, reinterpret_cast<const signed char*>(reply.data()),
                           static_cast<int>(reply.size()), record.get(), last_chunk, complete);
  }
  /// In replies of `chunk` bytes.
  void PushAll(const std::string& bytes, size_t chunk) {
    for (size_t at = 0; at < bytes.size(); at += chunk) {
      Push(CalibrationReply(bytes.size(), bytes.substr(at, chunk)));
    }
    EXPECT_TRUE(complete);
  }
  bool Holds(const CheckParam& wanted) const {
    return std::memcmp(record.get(), &wanted, sizeof(CheckParam)) == 0;
  }

  LidarType model;
  CalibrationStream stream;
  std::unique_ptr<CheckParam> record = std::make_unique<CheckParam>();
  bool last_chunk = false;
  bool complete = false;
};

TEST(CalibrationStream, FillsTheRecordByteForByteInAnyOrder) {
  Random random(1);
  const auto sent = PlausibleCalibration(random);
  for (const LidarType model : {TS4, TS4A, TS4B, TS6}) {
    for (const char* order : {"ABCD", "DCBA", "BADC"}) {
      const ConsoleCapture quiet;
      Download download(model);
      download.PushAll(SectionStream(*sent, order), model == TS4 ? 2009 : 1000);
      EXPECT_TRUE(download.Holds(model == TS4 ? CheckParam() : *sent)) << model << order;
      EXPECT_EQ(download.stream.FilledSections(), model == TS4 ? 0U : 4U);
    }
  }
}

TEST(CalibrationStream, LeavesOutWhatIsMissingOrShort) {
  Random random(2);
  const auto sent = PlausibleCalibration(random);
  CheckParam want;
  std::memcpy(want.weight, sent->weight, sizeof(want.weight));
  // A table one float short is ignored; bytes behind a section's own are too.
  const std::string short_table = SectionStream(*sent, "A").substr(0, 196'608);
  Download download;
  download.PushAll(short_table + SectionStream(*sent, "C") + "more", 2009);
  EXPECT_TRUE(download.Holds(want));
  EXPECT_EQ(download.stream.FilledSections(), 1U);
}

TEST(CalibrationStream, TakesTheFirstMarkerOnAWordEvenInsideData) {
  Random random(3);
  const auto sent = PlausibleCalibration(random);
  std::memcpy(&sent->elevation[100], "CCCC", 4);  // cuts the elevation short
  CheckParam want;
  std::memcpy(want.azimuth, sent->azimuth, sizeof(want.azimuth));
  std::memcpy(want.weight, &sent->elevation[101], sizeof(want.weight));
  std::memcpy(want.near_filter, sent->near_filter, sizeof(want.near_filter));
  Download download, shifted;
  download.PushAll(SectionStream(*sent, "ADCB"), 1000);
  EXPECT_TRUE(download.Holds(want));
  shifted.PushAll("x" + SectionStream(*sent, "CD"), 1000);
  EXPECT_TRUE(shifted.Holds(CheckParam())) << "off the words there is no marker";
}

TEST(CalibrationStream, SaysWhatToAskNext) {
  Download download;
  const struct {
    std::string reply;
    int next;
    bool last_chunk;
  } cases[] = {{CalibrationReply(2500, std::string(1000, 'x')), 1000, false},
               {"ZZZ", -1, false},
               {"ZZZY" + std::string(100, 'x'), -1, false},
               {CalibrationReply(9, std::string(700, 'x')), 700, false},  // the first length counts
               {"ZZZZ" + std::string(25, 'x'), -10, false},               // a short reply lowers the count
               {CalibrationReply(2500, std::string(500, 'x')), 310, true},
               {"ZZZ", -1, true},  // a refused reply leaves it as it was
               {CalibrationReply(2500, std::string(310, 'x')), 0, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    EXPECT_FALSE(download.complete);
    EXPECT_EQ(download.Push(c.reply), c.next);
    EXPECT_EQ(download.last_chunk, c.last_chunk);
  }
  EXPECT_TRUE(download.complete);
}

TEST(CalibrationStream, SurvivesHostileLengths) {
  Random random(4);
  const std::string sections = SectionStream(*PlausibleCalibration(random), "DCA").substr(0, 1500);
  for (const uint32_t length : {0U, 31U, 32U, 36U, 1532U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    for (const LidarType model : {NV2, TS4, TS4B, static_cast<LidarType>(5)}) {
      const ConsoleCapture quiet;
      Download download(model);
      std::string reply = CalibrationReply(0, sections);
      reply.replace(4, 4, LittleEndian32(length));
      for (const size_t size : {4U, 6U, 38U, 39U, 40U, 2000U}) download.Push(reply.substr(0, size));
    }
  }
}

TEST(CalibrationStream, StoresNoMoreThanSixteenMebibytes) {
  Random random(5);
  const auto sent = PlausibleCalibration(random);
  constexpr size_t kLimit = 16U << 20;
  std::string stream(17U << 20, 'x');
  stream.replace(kLimit - 64, 20, SectionStream(*sent, "C"));
  stream.replace(kLimit - 32, 36, SectionStream(*sent, "D"));  // its last floats are not kept
  CheckParam want;
  std::memcpy(want.weight, sent->weight, sizeof(want.weight));
  Download download;
  download.PushAll(stream, 2009);
  EXPECT_TRUE(download.Holds(want));
}

/// A download over real sockets, on a thread of its own.
struct Loading {
  explicit Loading(uint16_t sensor_port)
      : service(std::make_shared<ParamService>()), loader(TS4B, CommandParam(sensor_port), service) {
    EXPECT_TRUE(loader.Init());
    thread.Start([this] { loader.Run(thread); });
  }
  bool Completes() {
    return Eventually([this] { return loader.TakeRecord(); });
  }

  std::shared_ptr<ParamService> service;
  CalibrationLoader loader;
  WorkerThread thread{"load"};
};

TEST(CalibrationLoader, AsksChunkByChunkAndAnnouncesTheLast) {
  Random random(6);
  const auto sent = PlausibleCalibration(random);
  const std::string stream = SectionStream(*sent);
  const sim::CalibrationServer server({stream.begin(), stream.end()}, kLoopback, 0);
  Loading loading(server.Port());
  ASSERT_TRUE(loading.Completes());
  EXPECT_EQ(std::memcmp(loading.service->GetCheckParam(TS4B), sent.get(), sizeof(CheckParam)), 0);
  EXPECT_FALSE(loading.loader.TakeRecord());
  loading.thread.Stop();
  const auto requests = server.Requests();
  ASSERT_EQ(requests.size(), 394U);
  for (uint32_t i = 0; i < 394; ++i) {
    ASSERT_EQ(requests[i].offset, 1000 * i);
    ASSERT_EQ(requests[i].count, i < 393 ? 1000 : 280);
    ASSERT_EQ(requests[i].last_chunk, i < 393 ? 0 : 1);
  }
}

std::string Request(bool last_chunk, uint32_t offset, uint32_t count) {
  std::string bytes = "\xA5\xA5\xA5\xA5" + std::string(1, last_chunk ? '\1' : '\0');
  bytes += LittleEndian32(offset) + LittleEndian32(count).substr(0, 2);
  unsigned sum = 0;
  for (const char byte : bytes) sum += static_cast<uint8_t>(byte);
  return bytes + static_cast<char>(sum);
}

/// What the sensor is asked, depending on what it answered before; an empty reply is none.
TEST(CalibrationLoader, RequestSequences) {
  const CheckParam check;
  const std::string stream = SectionStream(check, "CD");  // 56 bytes
  const std::string whole = CalibrationReply(stream.size(), stream);
  const std::string half = CalibrationReply(2000, std::string(1000, 'x'));
  const std::string more = CalibrationReply(2000, std::string(1003, 'x'));
  const std::string endless = CalibrationReply(0x7FFFFF00, "1234");
  const std::string first = Request(false, 0, 1000), closing = Request(false, 0, 100);
  const struct {
    const char* name;
    std::vector<std::pair<std::string, std::string>> steps;
    bool completes = true;
  } cases[] = {
      {"complete in one reply: one closing request, repeated until answered",
       {{first, whole}, {closing, ""}, {closing, ""}, {closing, whole}}},
      {"silence: the same request again", {{first, ""}, {first, ""}, {first, whole}, {closing, whole}}},
      {"garbage: count 65535, then one off the offset",
       {{first, "nonsense"}, {Request(false, 1000, 65535), half}, {Request(true, 999, 1000), half}}},
      {"a short reply lowers the count",
       {{first, half.substr(0, 36)}, {Request(false, 1000, 65533), more}, {Request(true, 997, 1000), more}}},
      {"an announced length that never comes",
       {{first, endless}, {Request(false, 1000, 4), endless}, {Request(false, 1004, 4), endless}},
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const ConsoleCapture quiet;
    const UdpPeer sensor;
    Loading loading(sensor.Port());
    std::string answered;
    for (const auto& [wanted, reply] : c.steps) {
      uint16_t driver = 0;
      std::string request = sensor.Receive(&driver, 60'000);
      // On a busy machine it may have asked once more before it had the answer.
      while (request == answered && request != wanted) request = sensor.Receive(&driver, 60'000);
      ASSERT_EQ(request, wanted);
      if (reply.empty()) continue;
      sensor.Send(driver, reply);
      answered = request;
    }
    if (c.completes) EXPECT_TRUE(loading.Completes());
  }
}

TEST(CalibrationLoader, BeginsAnewAfterAStop) {
  CheckParam sent;
  SetWeights(sent, {1, 2, 3, 4}, {1, 2, 3, 4, 5, 6, 7, 8});
  const std::string stream = SectionStream(sent, "CD");
  const UdpPeer sensor;
  Loading loading(sensor.Port());
  uint16_t driver = 0;
  ASSERT_EQ(sensor.Receive(&driver, 60'000), Request(false, 0, 1000));
  sensor.Send(driver, CalibrationReply(stream.size(), stream.substr(0, 20)));
  while (sensor.Receive(&driver, 60'000) != Request(false, 1000, 20)) {
  }
  loading.thread.Stop();
  sensor.Send(driver, CalibrationReply(stream.size(), stream.substr(20, 20)));  // too late
  loading.thread.Start([&] { loading.loader.Run(loading.thread); });
  while (sensor.Receive(&driver, 60'000) != Request(false, 0, 1000)) {
  }
  sensor.Send(driver, CalibrationReply(stream.size(), stream));
  ASSERT_TRUE(loading.Completes());
  EXPECT_EQ(std::memcmp(loading.service->GetCheckParam(TS4B), &sent, sizeof(sent)), 0);
}

}  // namespace
}  // namespace orva::test
