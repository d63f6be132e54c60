// SPDX-License-Identifier: Apache-2.0
//
// The index pass over a recording in the page cache beside libpcap alone (pcap_next_ex and
// pcap_offline_filter with libpcap's default buffering) over the same file, in one run.
#include <benchmark/benchmark.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "decoder/decoder_factory.h"
#include "input/input_pcap.h"
#include "support/packets.h"

namespace {

/// Of this thread on a core: other processes then take no part in the ratio.
struct Clock {
  using time_point = double;
  static double now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  }
};
constexpr uint16_t kPort = 6699;
constexpr size_t kFileBytes = 500'000'000;

/// A recording of full TS4B packets, removed at the end.
class Recording {
 public:
  Recording() {
    const char* folder = std::getenv("TMPDIR");
    path_ = std::string(folder != nullptr ? folder : "/tmp") + "/orva_index_bench_XXXXXX";
    const int fd = mkstemp(path_.data());
    if (fd >= 0) close(fd);
    pcap_t* handle = pcap_open_dead(DLT_EN10MB, 65535);
    pcap_dumper_t* dumper = pcap_dump_open(handle, path_.c_str());
    orva::test::Random random(1);
    std::vector<std::vector<uint8_t>> frames;
    for (int i = 0; i < 256; ++i) {
      frames.push_back(EthernetFrame(orva::test::PlausiblePacket(random, TS4B)));
    }
    for (size_t bytes = 0, i = 0; bytes < kFileBytes; ++i) {
      const std::vector<uint8_t>& frame = frames[i % frames.size()];
      pcap_pkthdr header{};
      header.ts.tv_sec = static_cast<time_t>(i / 7680);
      header.caplen = header.len = static_cast<bpf_u_int32>(frame.size());
      pcap_dump(reinterpret_cast<u_char*>(dumper), &header, frame.data());
      bytes += frame.size() + 16;
    }
    pcap_dump_close(dumper);
    pcap_close(handle);
  }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;
  ~Recording() { unlink(path_.c_str()); }

  const std::string& Path() const { return path_; }

 private:
  static std::vector<uint8_t> EthernetFrame(const orva::test::Packet& packet) {
    std::vector<uint8_t> frame(42);
    const size_t udp = packet.size() + 8;
    const size_t ip = udp + 20;
    frame[12] = 0x08;
    frame[14] = 0x45;
    frame[16] = static_cast<uint8_t>(ip >> 8);
    frame[17] = static_cast<uint8_t>(ip);
    frame[22] = 64;
    frame[23] = 17;
    frame[36] = kPort >> 8;
    frame[37] = kPort & 0xFF;
    frame[38] = static_cast<uint8_t>(udp >> 8);
    frame[39] = static_cast<uint8_t>(udp);
    frame.insert(frame.end(), packet.bytes().begin(), packet.bytes().end());
    return frame;
  }

  std::string path_;
};

size_t ReadWithLibpcap(const std::string& path) {
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* handle = pcap_open_offline(path.c_str(), error);
  bpf_program filter{};
  pcap_compile(handle, &filter, ("(udp dst port " + std::to_string(kPort) + ")").c_str(), 1,
               PCAP_NETMASK_UNKNOWN);
  size_t records = 0;
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  while (pcap_next_ex(handle, &header, &data) >= 0) {
    if (pcap_offline_filter(&filter, header, data) != 0) ++records;
  }
  pcap_freecode(&filter);
  pcap_close(handle);
  return records;
}

/// What the replay thread does for each record of the pass.
size_t IndexRecording(const std::string& path) {
  InputParam param;
  param.msop_port = kPort;
  param.pcap_path = path;
  tevoro::lidar::InputPcap input(param);
  if (!input.Init()) return 0;
  const auto decoder = tevoro::lidar::DecoderFactory<PointCloud<Point>>::CreateDecoder(TS4B, {});
  tevoro::lidar::PacketView packet;
  size_t records = 0;
  long position = 0;
  uint16_t seq = 0;
  for (int length; (length = input.NextPacket(packet, &position, true)) >= 0;) {
    if (length == 0) continue;
    ++records;
    decoder->toSplite(packet.data, packet.length, seq);
  }
  return records;
}

void IndexPass(benchmark::State& state) {
  const Recording recording;
  ReadWithLibpcap(recording.Path());  // into the page cache
  std::vector<double> ratios;
  for (auto _ : state) {
    const Clock::time_point start = Clock::now();
    const size_t expected = ReadWithLibpcap(recording.Path());
    const Clock::time_point middle = Clock::now();
    const size_t records = IndexRecording(recording.Path());
    const Clock::time_point end = Clock::now();
    if (records != expected || records == 0) {
      state.SkipWithError("records are missing");
      break;
    }
    ratios.push_back((middle - start) / (end - middle));
    state.SetIterationTime(end - middle);
  }
  std::sort(ratios.begin(), ratios.end());
  state.counters["median_ratio"] = ratios[ratios.size() / 2];
}
BENCHMARK(IndexPass)->UseManualTime()->Iterations(9)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
