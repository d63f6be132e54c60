// SPDX-License-Identifier: Apache-2.0
#include "captures/capture_reader.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>

#include "captures/capture_check.h"
#include "input/link_header.h"
#include "input/record_time.h"
#include "shared/failure.h"

namespace orva {
namespace {

constexpr int64_t kSecond = 1'000'000'000;
/// Beyond this no pcap file can name a time. A pcapng may hold any 64-bit one.
constexpr int64_t kLatest = 0xFFFF'FFFF;

ssize_t ReadCookie(void* cookie, char* to, size_t size) {
  return static_cast<ssize_t>(
      static_cast<RecordedBytes*>(cookie)->Read(reinterpret_cast<uint8_t*>(to), size));
}

int64_t TimeOf(const timeval& time, bool is_pcapng) {
  return std::clamp<int64_t>(tevoro::lidar::SecondsOf(time, is_pcapng), 0, kLatest) * kSecond +
         std::clamp<int64_t>(time.tv_usec, 0, kSecond - 1);
}

}  // namespace

void CaptureReader::Close::operator()(pcap* capture) const {
  pcap_close(capture);
}

CaptureReader::CaptureReader(const std::string& path) : bytes_(OpenRecordedBytes(path)) {
  const std::string name = path == kStandardInput ? "standard input" : path;
  RecordingFile stream(fopencookie(bytes_.get(), "rb", {ReadCookie, nullptr, nullptr, nullptr}));
  if (stream == nullptr) throw Failure("out of memory.");
  char error[PCAP_ERRBUF_SIZE] = "";
  capture_.reset(pcap_fopen_offline_with_tstamp_precision(stream.get(), PCAP_TSTAMP_PRECISION_NANO, error));
  if (capture_ == nullptr) {
    const std::string& why = bytes_->damage().empty() ? error : bytes_->damage();
    throw Failure(name + " is no capture file: " + why +
                  ". Give a pcap or pcapng file, compressed by gzip or zstd or not at all.");
  }
  static_cast<void>(stream.release());  // closed with the capture
  link_type_ = pcap_datalink(capture_.get());
  if (!tevoro::lidar::LinkHeaderLength(link_type_)) {
    const char* const link = pcap_datalink_val_to_description(link_type_);
    throw Failure(name + " was captured on a link of type " + std::to_string(link_type_) + " (" +
                  (link != nullptr ? link : "unknown") +
                  "), which is not known here. Record on Ethernet, or with 'tcpdump -i any'.");
  }
}

CaptureReader::~CaptureReader() = default;

bool CaptureReader::Next(Record& record) {
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  const int result = pcap_next_ex(capture_.get(), &header, &data);
  if (result != 1) {
    damage_ = !bytes_->damage().empty()    ? bytes_->damage()
              : result != PCAP_ERROR_BREAK ? pcap_geterr(capture_.get())
                                           : "";
    return false;
  }
  const int64_t time = TimeOf(header->ts, tevoro::lidar::IsPcapng(capture_.get()));
  record = {time, {data, header->caplen}, std::max(header->len, header->caplen)};
  return true;
}

}  // namespace orva
