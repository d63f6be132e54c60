// SPDX-License-Identifier: Apache-2.0
//
// An MCAP file of a TS4B's clouds beside a copy of a file of the same bytes, in one run, from and to files in
// the page cache. Each line is the best of some repeats that take turns.
//
//   mcap_bench [FRAMES]      400 by default, some 216 MB
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "decoder/decoder_factory.h"
#include "mcap/writer.h"
#include "messages/cdr.h"
#include "messages/from_driver.h"
#include "messages/schemas.h"
#include "sim/sensor.h"
#include "support/console_capture.h"
#include "support/packets.h"
#include "support/temp_folder.h"

namespace {

namespace mcap = orva::mcap;
namespace messages = orva::messages;
using Clock = std::chrono::steady_clock;
using Cloud = PointCloud<PointTime>;
using Message = std::vector<std::uint8_t>;

constexpr int kRepeats = 9;
constexpr std::uint64_t kDifferentFrames = 20;

/// What the driver makes of a simulated street.
std::vector<Cloud> SomeClouds() {
  const orva::test::ConsoleCapture quiet;
  orva::sim::Sensor sensor({.model = TS4B, .frames = kDifferentFrames});
  const auto decoder = tevoro::lidar::DecoderFactory<Cloud>::CreateDecoder(TS4B, orva::test::OpenLimits());
  auto check = std::make_unique<tevoro::lidar::CheckParam>();
  const orva::sim::Calibration& calibration = sensor.GetCalibration();
  std::memcpy(&check->azimuth, calibration.azimuth.data(), sizeof(check->azimuth));
  std::memcpy(&check->elevation, calibration.elevation.data(), sizeof(check->elevation));
  std::memcpy(&check->weight, calibration.weight.data(), sizeof(check->weight));
  std::memcpy(&check->near_filter, calibration.near_filter.data(), sizeof(check->near_filter));
  decoder->UpdateCheckParam(check.get());
  std::vector<Cloud> clouds;
  decoder->point_cloud_ = std::make_shared<Cloud>();
  decoder->RegisterCallBack({}, [&](const std::uint16_t&, const double&) {
    clouds.push_back(*decoder->point_cloud_);
    decoder->point_cloud_->points.clear();
  });
  orva::sim::TimedPacket packet;
  while (sensor.Next(packet)) {
    decoder->ProcessMsopPacket(packet.payload.data(), packet.payload.size(), 0);
  }
  return clouds;
}

void Fail(const std::string& text) {
  std::fprintf(stderr, "mcap_bench: %s\n", text.c_str());
  std::exit(1);
}

/// Writes `frames` messages, which `next` gives. The size of the file.
std::uint64_t WriteFile(const std::string& path, const mcap::Options& options, std::uint64_t frames,
                        const std::function<const Message&(std::uint64_t)>& next) {
  mcap::FileSink sink(path);
  mcap::Writer writer(sink, options);
  const messages::Schema schema = messages::PointCloud2Schema();
  const auto channel =
      writer.AddChannel(writer.AddSchema(schema.name, "ros2msg", schema.text), "/points", "cdr");
  for (std::uint64_t i = 0; i < frames; ++i) {
    writer.Write(channel, 1 + i, 1 + i, next(i));
  }
  if (const mcap::Status status = writer.Close(); !status.ok()) {
    Fail(status.text);
  }
  return sink.size();
}

std::uint64_t CopyFile(const std::string& from, const std::string& to) {
  const int source = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  const int target = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  std::vector<char> block(1 << 20);
  std::uint64_t size = 0;
  for (ssize_t got = 0; (got = read(source, block.data(), block.size())) > 0;
       size += static_cast<std::uint64_t>(got)) {
    if (write(target, block.data(), static_cast<std::size_t>(got)) != got) {
      Fail("the disk is full");
    }
  }
  close(source);
  close(target);
  return size;
}

struct Contender {
  const char* name;
  std::function<std::uint64_t()> run;
  double best = 1e9;       ///< seconds
  double cpu = 1e9;        ///< seconds of all threads, which other programs disturb less
  std::uint64_t size = 0;  ///< bytes of the file
};

}  // namespace

int main(int argc, char** argv) {
  const std::uint64_t frames = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 400;
  const std::vector<Cloud> clouds = SomeClouds();
  std::vector<Message> ready(clouds.size());
  messages::PointCloud2 message;
  Message bytes;
  const auto make = [&](std::uint64_t i) -> const Message& {
    messages::FillPointCloud2(clouds[i % clouds.size()], 1.0, {}, message);
    messages::WriteCdr(message, bytes);
    return bytes;
  };
  for (std::uint64_t i = 0; i < ready.size(); ++i) {
    ready[i] = make(i);
  }
  const auto give = [&](std::uint64_t i) -> const Message& { return ready[i % ready.size()]; };

  const orva::test::TempFolder folder;
  const std::string original = folder.Path("original.mcap");
  const std::string path = folder.Path("file.mcap");
  const auto writes = [&](mcap::Compression compression, unsigned threads, const auto& next) {
    return [&, compression, threads] {
      mcap::Options options;
      options.compression = compression;
      options.threads = threads;
      return WriteFile(path, options, frames, next);
    };
  };
  const unsigned threads = mcap::Options::DefaultThreads();
  std::vector<Contender> contenders = {
      {"copy of the file", [&] { return CopyFile(original, path); }},
      {"messages, no compression", writes(mcap::Compression::kNone, threads, give)},
      {"messages, no compression, no thread", writes(mcap::Compression::kNone, 0, give)},
      {"clouds, no compression", writes(mcap::Compression::kNone, threads, make)},
      {"messages, lz4", writes(mcap::Compression::kLz4, threads, give)},
      {"messages, zstd", writes(mcap::Compression::kZstd, threads, give)},
      {"messages, zstd, no thread", writes(mcap::Compression::kZstd, 0, give)}};
  mcap::Options plain;
  plain.compression = mcap::Compression::kNone;
  const std::uint64_t size = WriteFile(original, plain, frames, give);

  for (int repeat = 0; repeat < kRepeats; ++repeat) {
    for (Contender& contender : contenders) {
      unlink(path.c_str());
      const std::clock_t cpu_start = std::clock();
      const auto start = Clock::now();
      contender.size = contender.run();
      contender.best = std::min(contender.best, std::chrono::duration<double>(Clock::now() - start).count());
      contender.cpu = std::min(contender.cpu, static_cast<double>(std::clock() - cpu_start) / CLOCKS_PER_SEC);
    }
  }
  std::printf("%llu frames, %llu bytes without compression; %u threads\n",
              static_cast<unsigned long long>(frames), static_cast<unsigned long long>(size), threads);
  for (const Contender& contender : contenders) {
    std::printf("%-36s %6.0f MB/s, %5.2f of a copy; by CPU time %5.2f; size %4.2f\n", contender.name,
                static_cast<double>(size) / contender.best / 1e6, contenders.front().best / contender.best,
                contenders.front().cpu / contender.cpu,
                static_cast<double>(contender.size) / static_cast<double>(size));
  }
  return 0;
}
