// SPDX-License-Identifier: Apache-2.0
#include "capture_writer.h"

#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <span>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace orva::sim {
namespace {

constexpr int kSnapLength = 65535;
constexpr uint64_t kFileHeader = 24;    // as the file holds it
constexpr uint64_t kRecordHeader = 16;  // likewise
constexpr uint8_t kUdp = 17;
constexpr size_t kUdpHeader = 8;

int LinkType(Framing framing) {
  switch (framing) {
    case Framing::kEthernet:
      return DLT_EN10MB;
    case Framing::kLinuxCooked:
      return DLT_LINUX_SLL;
    case Framing::kLinuxCookedV2:
      return DLT_LINUX_SLL2;
    case Framing::kRawIp:
      return DLT_RAW;
    case Framing::kLoopback:
      return DLT_NULL;
  }
  throw std::invalid_argument("no such framing");
}

// Network headers are big-endian.
void Append16(std::vector<uint8_t>& out, size_t value) {
  out.push_back(static_cast<uint8_t>(value >> 8));
  out.push_back(static_cast<uint8_t>(value));
}

void Store16(std::vector<uint8_t>& out, size_t at, uint32_t value) {
  out[at] = static_cast<uint8_t>(value >> 8);
  out[at + 1] = static_cast<uint8_t>(value);
}

template <typename Bytes>
void Append(std::vector<uint8_t>& out, const Bytes& bytes) {
  out.insert(out.end(), std::begin(bytes), std::end(bytes));
}

uint32_t SumWords(std::span<const uint8_t> bytes, uint32_t sum = 0) {
  for (size_t i = 0; i < bytes.size(); i += 2) {
    sum += static_cast<uint32_t>(bytes[i] << 8) + (i + 1 < bytes.size() ? bytes[i + 1] : 0U);
  }
  return sum;
}

uint32_t Checksum(uint32_t sum) {
  while (sum > 0xFFFF) sum = (sum >> 16) + (sum & 0xFFFF);
  return ~sum & 0xFFFF;
}

std::string Reason(int error) {
  return std::generic_category().message(error);
}

}  // namespace

void CaptureWriter::Closer::operator()(pcap* handle) const {
  pcap_close(handle);
}
void CaptureWriter::Closer::operator()(pcap_dumper* dumper) const {
  pcap_dump_close(dumper);
}

CaptureWriter::CaptureWriter(std::filesystem::path path, const CaptureOptions& options)
    : path_(std::move(path)), options_(options), part_(path_) {
  std::error_code ignored;
  const auto status = std::filesystem::status(path_, ignored);
  if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status)) part_ += ".part";
  handle_.reset(pcap_open_dead_with_tstamp_precision(
      LinkType(options_.framing), kSnapLength,
      options_.nanoseconds ? PCAP_TSTAMP_PRECISION_NANO : PCAP_TSTAMP_PRECISION_MICRO));
  if (!handle_) Fail("out of memory");
  // Opened here, so that the system's own reason is at hand when it fails.
  std::FILE* file = std::fopen(part_.c_str(), "wb");
  if (file == nullptr) Fail(Reason(errno));
  // Without a buffer it is known at any time what is in the file.
  if (options_.keep_unfinished) std::setvbuf(file, nullptr, _IONBF, 0);
  errno = 0;
  dumper_.reset(pcap_dump_fopen(handle_.get(), file));  // closes the file itself where it fails
  if (!dumper_) {
    const std::string reason = errno != 0 ? Reason(errno) : pcap_geterr(handle_.get());
    if (part_ != path_) std::filesystem::remove(part_, ignored);
    Fail(reason);
  }
  size_ = kFileHeader;
}

CaptureWriter::~CaptureWriter() {
  if (!dumper_) return;
  dumper_.reset();
  if (part_ == path_) return;
  std::error_code ignored;
  if (options_.keep_unfinished && size_ > kFileHeader) {
    if (std::filesystem::file_size(part_, ignored) > size_) {
      std::filesystem::resize_file(part_, size_, ignored);  // without the record that did not fit
    }
    std::filesystem::rename(part_, path_, ignored);
  } else {
    std::filesystem::remove(part_, ignored);
  }
}

void CaptureWriter::Write(const TimedPacket& packet) {
  Write(packet, {options_.source, options_.destination, options_.source_port, options_.destination_port});
}

void CaptureWriter::Write(const TimedPacket& packet, const Endpoints& endpoints) {
  record_.clear();
  AppendLinkHeader();
  AppendIpHeader(endpoints, packet.payload.size());
  AppendUdp(endpoints, packet.payload);

  constexpr int64_t kSecond = 1'000'000'000;
  pcap_pkthdr header{};
  header.ts.tv_sec = packet.time_ns / kSecond;
  header.ts.tv_usec = packet.time_ns % kSecond / (options_.nanoseconds ? 1 : 1000);
  header.caplen = header.len = static_cast<bpf_u_int32>(record_.size());
  errno = 0;
  pcap_dump(reinterpret_cast<u_char*>(dumper_.get()), &header, record_.data());
  if (std::ferror(pcap_dump_file(dumper_.get())) != 0) Fail(Reason(errno));
  size_ += kRecordHeader + record_.size();
}

bool CaptureWriter::HasFile() const {
  struct stat about = {};
  return !dumper_ || fstat(fileno(pcap_dump_file(dumper_.get())), &about) != 0 || !S_ISREG(about.st_mode) ||
         about.st_nlink > 0;
}

void CaptureWriter::Finish() {
  if (pcap_dump_flush(dumper_.get()) != 0) Fail(Reason(errno));
  // Where the disk is reached over a network, or has a quota, errors may show only when the file is closed.
  // libpcap does not tell of them, the close of a second descriptor does.
  const int second = fcntl(fileno(pcap_dump_file(dumper_.get())), F_DUPFD_CLOEXEC, 0);
  if (second >= 0 && close(second) != 0) Fail(Reason(errno));
  std::error_code error;
  if (part_ != path_) std::filesystem::rename(part_, path_, error);
  if (error) Fail(error.message());
  dumper_.reset();
}

void CaptureWriter::Fail(const std::string& reason) const {
  throw std::runtime_error("cannot write " + path_.string() + ": " + reason);
}

void CaptureWriter::AppendLinkHeader() {
  constexpr size_t kEtherTypeIpv4 = 0x0800;
  constexpr size_t kEthernetHardware = 1;
  constexpr std::array<uint8_t, 6> kSensorMac{0x02, 0x00, 0x00, 0x4F, 0x52, 0x01};
  constexpr std::array<uint8_t, 6> kHostMac{0x02, 0x00, 0x00, 0x4F, 0x52, 0x02};
  constexpr std::array<uint8_t, 2> kPadding{};
  switch (options_.framing) {
    case Framing::kEthernet:
      Append(record_, kHostMac);
      Append(record_, kSensorMac);
      Append16(record_, kEtherTypeIpv4);
      break;
    case Framing::kLinuxCooked:
      Append16(record_, 0);  // sent to us
      Append16(record_, kEthernetHardware);
      Append16(record_, kSensorMac.size());
      Append(record_, kSensorMac);
      Append(record_, kPadding);
      Append16(record_, kEtherTypeIpv4);
      break;
    case Framing::kLinuxCookedV2:
      Append16(record_, kEtherTypeIpv4);
      Append16(record_, 0);
      Append16(record_, 0);
      Append16(record_, 2);  // the interface's number, 32 bits
      Append16(record_, kEthernetHardware);
      record_.push_back(0);  // sent to us
      record_.push_back(static_cast<uint8_t>(kSensorMac.size()));
      Append(record_, kSensorMac);
      Append(record_, kPadding);
      break;
    case Framing::kRawIp:
      break;
    case Framing::kLoopback:
      Append(record_, std::array<uint8_t, 4>{2, 0, 0, 0});  // AF_INET of a little-endian machine
      break;
  }
}

void CaptureWriter::AppendIpHeader(const Endpoints& endpoints, size_t payload_size) {
  const size_t start = record_.size();
  const size_t header_size = options_.ip_options ? 24 : 20;
  record_.push_back(static_cast<uint8_t>(0x40 | (header_size / 4)));
  record_.push_back(0);
  Append16(record_, header_size + kUdpHeader + payload_size);
  Append16(record_, identification_++);
  Append16(record_, 0x4000);  // do not fragment
  record_.push_back(64);      // hops
  record_.push_back(kUdp);
  Append16(record_, 0);
  Append(record_, endpoints.source);
  Append(record_, endpoints.destination);
  if (options_.ip_options) Append(record_, std::array<uint8_t, 4>{1, 1, 1, 0});  // no-operation, end of list
  Store16(record_, start + 10, Checksum(SumWords(std::span(record_).subspan(start))));
}

void CaptureWriter::AppendUdp(const Endpoints& endpoints, const std::vector<uint8_t>& payload) {
  const size_t start = record_.size();
  Append16(record_, endpoints.source_port);
  Append16(record_, endpoints.destination_port);
  Append16(record_, kUdpHeader + payload.size());
  Append16(record_, 0);
  Append(record_, payload);
  uint32_t sum = SumWords(endpoints.destination, SumWords(endpoints.source));
  sum += kUdp + static_cast<uint32_t>(kUdpHeader + payload.size());
  const uint32_t checksum = Checksum(SumWords(std::span(record_).subspan(start), sum));
  Store16(record_, start + 6, checksum == 0 ? 0xFFFF : checksum);
}

}  // namespace orva::sim
