// SPDX-License-Identifier: Apache-2.0
//
// The index pass over a recording in the page cache beside libpcap alone (pcap_next_ex and
// pcap_offline_filter with libpcap's default buffering) over the same file, in one run. `skim_ratio`: the
// same for a loop of `read` that looks at nothing, which no reader of the file exceeds.
#include <benchmark/benchmark.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "index_pass.h"
#include "support/packets.h"

namespace {

using orva::bench::IndexRecording;
using orva::bench::kPort;
using orva::bench::SkimFile;
using orva::bench::ThreadSeconds;
constexpr size_t kFileBytes = 500'000'000;

/// Full TS4B packets.
std::vector<orva::test::Packet> Packets() {
  orva::test::Random random(1);
  std::vector<orva::test::Packet> packets;
  for (int i = 0; i < 256; ++i) packets.push_back(orva::test::PlausiblePacket(random, TS4B));
  return packets;
}

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

double Median(std::vector<double>& values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void IndexPass(benchmark::State& state) {
  const orva::bench::RecordingFile recording(Packets(), kFileBytes);
  ReadWithLibpcap(recording.Path());  // into the page cache
  std::vector<double> ratios, limits;
  for (auto _ : state) {
    const double start = ThreadSeconds();
    const size_t expected = ReadWithLibpcap(recording.Path());
    const double middle = ThreadSeconds();
    const size_t records = IndexRecording(recording.Path());
    const double end = ThreadSeconds();
    const size_t bytes = SkimFile(recording.Path());
    const double read = ThreadSeconds();
    if (records != expected || records == 0 || bytes < kFileBytes) {
      state.SkipWithError("records are missing");
      break;
    }
    ratios.push_back((middle - start) / (end - middle));
    limits.push_back((middle - start) / (read - end));
    state.SetIterationTime(end - middle);
  }
  state.counters["median_ratio"] = Median(ratios);
  state.counters["skim_ratio"] = Median(limits);
}
BENCHMARK(IndexPass)->UseManualTime()->Iterations(9)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
