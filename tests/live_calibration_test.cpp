// SPDX-License-Identifier: Apache-2.0
//
// The calibration download: how a stream is put together and parsed, and what the sensor is asked.
#include <cstring>

#include "online/calibration_loader.h"
#include "param/calibration_stream.h"
#include "support/calibrations.h"
#include "support/fake_sensor.h"

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
  }

  LidarType model;
  CalibrationStream stream;
  std::unique_ptr<CheckParam> record = std::make_unique<CheckParam>();
  bool last_chunk = false;
  bool complete = false;
};

bool SameBytes(const CheckParam& a, const CheckParam& b) {
  return std::memcmp(&a, &b, sizeof(CheckParam)) == 0;
}

TEST(CalibrationStream, FillsTheRecordByteForByteInAnyOrder) {
  Random random(1);
  const auto sent = PlausibleCalibration(random);
  for (const LidarType model : {TS4A, TS4B, TS6}) {
    for (const char* order : {"ABCD", "DCBA", "BADC"}) {
      const ConsoleCapture quiet;
      Download download(model);
      download.PushAll(SectionStream(*sent, order), 1000);
      EXPECT_TRUE(download.complete);
      EXPECT_TRUE(SameBytes(*download.record, *sent)) << model << order;
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
  EXPECT_TRUE(download.complete);
  EXPECT_TRUE(SameBytes(*download.record, want));

  Download ts4(TS4);
  ts4.PushAll(SectionStream(*sent), 2009);
  EXPECT_TRUE(ts4.complete);
  EXPECT_TRUE(SameBytes(*ts4.record, CheckParam()));
}

TEST(CalibrationStream, TakesTheFirstMarkerOnAWordEvenInsideData) {
  Random random(3);
  const auto sent = PlausibleCalibration(random);
  std::memcpy(&sent->elevation[100], "CCCC", 4);  // cuts the elevation short
  CheckParam want;
  std::memcpy(want.azimuth, sent->azimuth, sizeof(want.azimuth));
  std::memcpy(want.weight, &sent->elevation[101], sizeof(want.weight));
  std::memcpy(want.near_filter, sent->near_filter, sizeof(want.near_filter));
  Download download;
  download.PushAll(SectionStream(*sent, "ADCB"), 1000);
  EXPECT_TRUE(SameBytes(*download.record, want));

  Download shifted;  // off the words: no marker at all
  shifted.PushAll("x" + SectionStream(*sent, "CD"), 1000);
  EXPECT_TRUE(shifted.complete);
  EXPECT_TRUE(SameBytes(*shifted.record, CheckParam()));
}

TEST(CalibrationStream, SaysWhatToAskNext) {
  Download download;
  EXPECT_EQ(download.Push(CalibrationReply(2500, std::string(1000, 'x'))), 1000);
  EXPECT_FALSE(download.last_chunk);
  download.last_chunk = true;
  EXPECT_EQ(download.Push("ZZZ"), -1);
  EXPECT_EQ(download.Push("ZZZY" + std::string(100, 'x')), -1);
  EXPECT_TRUE(download.last_chunk);                                           // untouched by a refused reply
  EXPECT_EQ(download.Push(CalibrationReply(9, std::string(700, 'x'))), 700);  // the first length counts
  EXPECT_FALSE(download.last_chunk);
  EXPECT_EQ(download.Push("ZZZZ" + std::string(25, 'x')), -10);  // a short reply lowers the count
  EXPECT_EQ(download.Push(CalibrationReply(2500, std::string(500, 'x'))), 310);
  EXPECT_TRUE(download.last_chunk);
  EXPECT_FALSE(download.complete);
  EXPECT_EQ(download.Push(CalibrationReply(2500, std::string(310, 'x'))), 0);
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
  Download download;
  download.PushAll(stream, 2009);
  EXPECT_TRUE(download.complete);
  EXPECT_EQ(std::memcmp(download.record->weight, sent->weight, sizeof(sent->weight)), 0);
  EXPECT_EQ(std::memcmp(download.record->near_filter, CheckParam().near_filter, sizeof(sent->near_filter)),
            0);
}

/// A download over real sockets, on a thread of its own.
struct Loading {
  Loading(LidarType model, CommandPort& port)
      : service(std::make_shared<ParamService>()), loader(model, port.Param(), service) {
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
  CommandPort port(CommandPort::Obedient(SectionStream(*sent)));
  Loading loading(TS4B, port);
  ASSERT_TRUE(loading.Completes());
  EXPECT_TRUE(SameBytes(*loading.service->GetCheckParam(TS4B), *sent));
  EXPECT_FALSE(loading.loader.TakeRecord());

  const auto requests = port.Requests(394);
  ASSERT_EQ(requests.size(), 394U);
  for (uint32_t i = 0; i < 393; ++i) ASSERT_EQ(requests[i], (CalibrationRequest{0, 1000 * i, 1000}));
  EXPECT_EQ(requests[393], (CalibrationRequest{1, 393'000, 280}));
  loading.thread.Stop();
  EXPECT_EQ(port.RequestCount(), 394U);
}

/// Each script with the requests that it must provoke.
TEST(CalibrationLoader, RequestSequences) {
  const CheckParam check;
  const std::string stream = SectionStream(check, "CD");  // 56 bytes
  const std::string whole = CalibrationReply(stream.size(), stream);
  const std::string half = CalibrationReply(2000, std::string(1000, 'x'));
  using Answers = std::vector<std::string>;
  struct Case {
    const char* name;
    CommandPort::Script script;
    std::vector<CalibrationRequest> requests;
    bool completes = true;
  } cases[] = {
      {"complete in one reply: one closing request, repeated until answered",
       [&](const CalibrationRequest&, size_t n) { return n == 0 || n == 3 ? Answers{whole} : Answers{}; },
       {{0, 0, 1000}, {0, 0, 100}, {0, 0, 100}, {0, 0, 100}}},
      {"silence: the same request again",
       [&](const CalibrationRequest&, size_t n) { return n < 2 ? Answers{} : Answers{whole}; },
       {{0, 0, 1000}, {0, 0, 1000}, {0, 0, 1000}, {0, 0, 100}}},
      {"garbage: count 65535, then one off the offset",
       [&](const CalibrationRequest&, size_t n) { return n == 0 ? Answers{"nonsense"} : Answers{half}; },
       {{0, 0, 1000}, {0, 1000, 65535}, {1, 999, 1000}}},
      {"a short reply lowers the count",
       [&](const CalibrationRequest&, size_t n) {
         return n == 0 ? Answers{half.substr(0, 36)}
                       : Answers{CalibrationReply(2000, std::string(1003, 'x'))};
       },
       {{0, 0, 1000}, {0, 1000, 65533}, {1, 997, 1000}}},
      {"an announced length that never comes",
       [&](const CalibrationRequest&, size_t) { return Answers{CalibrationReply(0x7FFFFF00, "1234")}; },
       {{0, 0, 1000}, {0, 1000, 4}, {0, 1004, 4}, {0, 1008, 4}},
       false},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    const ConsoleCapture quiet;
    CommandPort port(c.script);
    Loading loading(TS4B, port);
    EXPECT_EQ(port.Requests(c.requests.size()), c.requests);
    if (c.completes) {
      EXPECT_TRUE(loading.Completes());
    }
  }
}

}  // namespace
}  // namespace orva::test
