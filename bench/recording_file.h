// SPDX-License-Identifier: Apache-2.0
//
// A large recording for benchmarks, and the clock of one thread.
#pragma once

#include <fcntl.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "support/capture_file.h"
#include "support/packets.h"

namespace orva::bench {

inline constexpr uint16_t kPort = 6699;

/// The packets over and over, until the file holds `bytes`. Removed at the end.
class RecordingFile {
 public:
  RecordingFile(const std::vector<test::Packet>& packets, size_t bytes) {
    const char* folder = std::getenv("TMPDIR");
    path_ = std::string(folder != nullptr ? folder : "/tmp") + "/orva_bench_XXXXXX";
    const int fd = mkstemp(path_.data());
    if (fd >= 0) close(fd);
    pcap_t* handle = pcap_open_dead(DLT_EN10MB, 65535);
    pcap_dumper_t* dumper = pcap_dump_open(handle, path_.c_str());
    std::vector<test::Bytes> records;
    for (const test::Packet& packet : packets) {
      records.push_back(test::EthernetFrame(test::Ipv4Udp(kPort, packet.bytes())));
    }
    for (size_t written = 0, i = 0; written < bytes; ++i) {
      const test::Bytes& record = records[i % records.size()];
      pcap_pkthdr header{};
      header.ts.tv_sec = static_cast<time_t>(1 + i / 7680);
      header.caplen = header.len = static_cast<bpf_u_int32>(record.size());
      pcap_dump(reinterpret_cast<u_char*>(dumper), &header, record.data());
      written += record.size() + 16;
    }
    pcap_dump_close(dumper);
    pcap_close(handle);
  }
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;
  ~RecordingFile() { unlink(path_.c_str()); }

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

/// Reads the whole file, a buffer at a time, and looks at nothing: what any reader of it takes at least. The
/// bytes; 0 where it cannot be opened.
inline size_t SkimFile(const std::string& path) {
  std::vector<char> buffer(256 * 1024);
  const int file = open(path.c_str(), O_RDONLY);
  size_t bytes = 0;
  for (ssize_t got; (got = read(file, buffer.data(), buffer.size())) > 0;) bytes += static_cast<size_t>(got);
  close(file);
  return bytes;
}

/// Seconds that this thread has been on a core: other processes then take no part in a ratio.
inline double ThreadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace orva::bench
