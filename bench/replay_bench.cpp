// SPDX-License-Identifier: Apache-2.0
//
// A whole recording, indexed and then played frame by frame, by the driver through its public interface and
// by the literal way: libpcap with its default buffering and filter, a new buffer for each packet, the
// transcription of the model's rule, a new cloud for each frame. Wall-clock, in turn, in one run: both do
// their work on one thread. Behind it, the same for reading the file twice and looking at nothing, which no
// replay in constant memory exceeds.
//
//   replay_bench [TS4B|TS6|NV2...]
#include <pcap/pcap.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "orva_driver.h"
#include "recording_file.h"
#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/packets.h"
#include "support/reference_decoder.h"
#include "support/temp_folder.h"

namespace {

using namespace orva::test;
using Clock = std::chrono::steady_clock;
using Cloud = PointCloud<Point>;
constexpr size_t kFileBytes = 150'000'000;
constexpr int kRounds = 5;

std::vector<Packet> Scan(LidarType model) {
  Random random(7);
  std::vector<Packet> packets;
  const size_t measurements = model == NV2 ? 56 * 192 : 192 * 128;
  for (size_t done = 0; done < measurements;) {
    Packet packet = PlausiblePacket(random, model);
    if (model == NV2) packet.Line(static_cast<unsigned>(done / 192));
    for (size_t k = 0; k < packet.layout().blocks; ++k, ++done) {
      if (model != NV2) packet.Code(k, static_cast<unsigned>(done / 128), static_cast<unsigned>(done % 128));
    }
    packets.push_back(packet);
  }
  return packets;
}

DecoderParam Limits() {
  DecoderParam param;
  param.min_distance = 0.4F;
  param.max_distance = 230.0F;
  param.min_azimuth = -180.0F;
  param.max_azimuth = 180.0F;
  param.min_elevation = -90.0F;
  param.max_elevation = 90.0F;
  return param;
}

struct Capture {
  explicit Capture(const std::string& path) : handle(pcap_open_offline(path.c_str(), error)) {
    const std::string text = "(udp dst port " + std::to_string(orva::bench::kPort) + ")";
    pcap_compile(handle, &filter, text.c_str(), 1, PCAP_NETMASK_UNKNOWN);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  ~Capture() {
    pcap_freecode(&filter);
    pcap_close(handle);
  }
  /// The next payload, in a buffer of its own; null at the end.
  std::shared_ptr<std::vector<uint8_t>> Next() {
    auto buffer = std::make_shared<std::vector<uint8_t>>(1546);
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    if (pcap_next_ex(handle, &header, &data) < 0) return nullptr;
    if (pcap_offline_filter(&filter, header, data) == 0) return buffer;
    std::memcpy(buffer->data(), data + 42, header->len - 42);
    return buffer;
  }

  char error[PCAP_ERRBUF_SIZE];
  pcap_t* handle;
  bpf_program filter{};
};

struct Replayed {
  size_t points = 0;
  int clouds = 0;
  int frames = 0;
  long faults = 0;  ///< pages that the second half of the frames had to be given
};

Replayed LiteralReplay(LidarType model, const std::string& path, const CheckParam& calibration) {
  const auto decoder = MakeReference<Cloud>(model, Limits());
  decoder->Update(calibration);
  auto cloud = std::make_shared<Cloud>();
  decoder->cloud = cloud.get();
  Replayed result;
  decoder->on_frame = [&](double) {
    ++result.clouds;
    result.points += cloud->points.size();
    cloud = std::make_shared<Cloud>();
    decoder->cloud = cloud.get();
  };
  Capture capture(path);
  std::vector<std::pair<long, uint16_t>> index;
  for (long position = ftell(pcap_file(capture.handle));; position = ftell(pcap_file(capture.handle))) {
    const auto buffer = capture.Next();
    if (!buffer) break;
    uint16_t seq = 0;
    if (decoder->Split(buffer->data(), seq) || index.empty()) index.emplace_back(position, seq);
  }
  for (const auto& [position, seq] : index) {
    fseek(pcap_file(capture.handle), position, SEEK_SET);
    decoder->Decode(capture.Next()->data(), seq);
    for (bool ended = false; !ended;) {
      const auto buffer = capture.Next();
      if (!buffer) {
        decoder->FinishFrame();
        break;
      }
      ended = decoder->Decode(buffer->data(), 0);
    }
  }
  return result;
}

long PageFaults() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

/// `clouds`: how many to wait for.
Replayed DriverReplay(LidarType model, const std::string& path, const std::string& calibration, int clouds) {
  Replayed result;
  std::atomic<int> put{0};
  const auto cloud = std::make_shared<Cloud>();
  OrvaDriver<Cloud> driver;
  driver.RegisterPointCloudCallBack(
      [&](std::shared_ptr<Cloud> finished) {
        result.points += finished->points.size();
        finished->points.clear();
        ++put;
      },
      [&] { return cloud; });
  DriverParam param;
  param.input_type = PCAP;
  param.lidar_type = model;
  param.input_param.msop_port = orva::bench::kPort;
  param.input_param.pcap_path = path;
  param.decoder_param = Limits();
  param.calibration_param.calib_folder = calibration;
  if (!driver.InitDriver(param) || !driver.Start()) return result;
  while (!driver.GetLocalFileStatus(result.frames)) std::this_thread::yield();
  long half = 0;
  for (int frame = 0; frame < result.frames; ++frame) {
    if (frame == result.frames / 2) half = PageFaults();
    while (!driver.SetLocalFrame(frame)) std::this_thread::yield();
  }
  while (put < clouds) std::this_thread::yield();
  result.faults = PageFaults() - half;
  driver.Stop();
  return result;
}

void Compare(const char* name, LidarType model) {
  const orva::bench::RecordingFile recording(Scan(model), kFileBytes);
  Random random(3);
  const auto calibration = PlausibleCalibration(random);
  const TempFolder folder;
  WriteCalibration(folder, *calibration);
  std::vector<double> ratios, limits;
  double driver_seconds = 0.0;
  Replayed replayed;
  for (int round = 0; round <= kRounds; ++round) {  // the first one warms up
    const ConsoleCapture quiet;
    const auto begin = Clock::now();
    const Replayed expected = LiteralReplay(model, recording.Path(), *calibration);
    const auto middle = Clock::now();
    replayed = DriverReplay(model, recording.Path(), folder.Path(), expected.clouds);
    const auto end = Clock::now();
    if (replayed.points != expected.points || expected.points == 0) {
      std::fprintf(stderr, "%s: %zu points instead of %zu\n", name, replayed.points, expected.points);
      std::exit(1);
    }
    const auto read = Clock::now();
    for (int pass = 0; pass < 2; ++pass) orva::bench::SkimFile(recording.Path());
    const std::chrono::duration<double> reading = Clock::now() - read;
    if (round == 0) continue;
    driver_seconds = std::chrono::duration<double>(end - middle).count();
    const std::chrono::duration<double> literal = middle - begin;
    ratios.push_back(literal.count() / driver_seconds);
    limits.push_back(literal / reading);
  }
  std::sort(ratios.begin(), ratios.end());
  std::sort(limits.begin(), limits.end());
  std::printf(
      "%-5s %d frames: %.2f times the literal way (%.2f to %.2f; reading alone %.1f), %.1f ns a point, "
      "%ld page faults in %d frames\n",
      name, replayed.frames, ratios[ratios.size() / 2], ratios.front(), ratios.back(),
      limits[limits.size() / 2], driver_seconds * 1e9 / static_cast<double>(replayed.points), replayed.faults,
      replayed.frames / 2);
}

}  // namespace

int main(int argc, char** argv) {
  for (const auto& [name, model] : {std::pair{"TS4B", TS4B}, {"TS6", TS6}, {"NV2", NV2}}) {
    const auto wanted = [name = name](const char* argument) { return std::string(argument) == name; };
    if (argc == 1 || std::any_of(argv + 1, argv + argc, wanted)) Compare(name, model);
  }
}
