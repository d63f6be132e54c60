// SPDX-License-Identifier: Apache-2.0
#include "input/input_pcap.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "common/console.h"
#include "input/link_header.h"

namespace tevoro::lidar {
namespace {

/// The C library's 4 KiB would mean a system call for every third packet.
constexpr size_t kFileBuffer = 128 * 1024;

/// Of the file format, as libpcap tells it; a classic capture has 2.
constexpr int kPcapngMajorVersion = 1;

/// Opens a capture file to be read through `buffer`. Null for what is not a capture.
pcap_t* OpenCapture(const std::string& path, std::unique_ptr<char[]>& buffer) {
  struct stat status {};
  // A pipe could neither be rewound nor be waited for.
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  buffer = std::make_unique_for_overwrite<char[]>(kFileBuffer);
  std::FILE* file = std::fopen(path.c_str(), "rbe");
  if (file == nullptr) return nullptr;
  std::setvbuf(file, buffer.get(), _IOFBF, kFileBuffer);
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* handle = pcap_fopen_offline(file, error);
  if (handle == nullptr) {
    std::fclose(file);
    return nullptr;
  }
  // After one seek the C library keeps count of the offset; before, each ftell is a system call.
  fseeko(file, ftello(file), SEEK_SET);
  return handle;
}

}  // namespace

InputPcap::InputPcap(const InputParam& param)
    : Input(param), filter_text_(port_ == 0 ? "(udp)" : "(udp dst port " + std::to_string(port_) + ")") {}

bool InputPcap::Init() {
  handle_.reset();
  handle_.reset(OpenCapture(pcap_path_, file_buffer_));
  PrintLine("pcap_file:" + pcap_path_);
  if (!handle_) return false;
  link_type_ = pcap_datalink(handle_.get());
  if (!LinkHeaderLength(link_type_)) {
    const char* name = pcap_datalink_val_to_description(link_type_);
    PrintErrorLine("pcap_file: link type " + std::to_string(link_type_) +
                   (name != nullptr ? " (" + std::string(name) + ")" : std::string()) +
                   " is not supported. Capture on Ethernet, or with \"tcpdump -i any\"");
    handle_.reset();
    return false;
  }
  // The filter is sound, and so is the link type: only for want of memory it does not compile. An empty
  // filter would reject everything.
  pcap_freecode(&filter_.program);
  if (pcap_compile(handle_.get(), &filter_.program, filter_text_.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0)
    return false;
  is_pcapng_ = pcap_major_version(handle_.get()) == kPcapngMajorVersion;
  sections_.assign(1, 0);
  section_ = 0;
  unreadable_ = -1;
  return true;
}

bool InputPcap::ReadRecord(pcap_pkthdr** header, const u_char** data) {
  if (!is_pcapng_) return pcap_next_ex(handle_.get(), header, data) >= 0;
  // A section takes 28 bytes, and its first interface 20; a packet is told by its length from 16 to 32.
  constexpr long kPacketHeader = 32;
  constexpr long kSmallestSection = 32;
  std::FILE* file = pcap_file(handle_.get());
  const long position = ftello(file);
  if (!IsWithin(position) && !ReadUpTo(position)) return false;
  int result = pcap_next_ex(handle_.get(), header, data);
  if (result == PCAP_ERROR && position != unreadable_) {
    // The record may belong to an interface that is described late in its section.
    if (ReadUpTo(position)) result = pcap_next_ex(handle_.get(), header, data);
    if (result < 0) unreadable_ = position;
  }
  if (result < 0 || ftello(file) - position - kPacketHeader - long{(*header)->caplen} >= kSmallestSection) {
    NoteSections(position);
  }
  return result >= 0;
}

bool InputPcap::IsWithin(long position) {
  // The record that opens a section stands behind the section's header, and is read with it.
  const auto next = std::lower_bound(sections_.begin(), sections_.end(), position);
  const bool opens = next != sections_.end() && *next == position;
  return opens || *std::prev(next) == section_;
}

bool InputPcap::ReadUpTo(long position) {
  std::FILE* file = pcap_file(handle_.get());
  section_ = *std::prev(std::lower_bound(sections_.begin(), sections_.end(), position));
  fseeko(file, section_, SEEK_SET);
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  while (ftello(file) < position) {
    if (pcap_next_ex(handle_.get(), &header, &data) < 0) return false;
  }
  // The first packet of the file was read with its section: its position lies behind the section's header.
  fseeko(file, position, SEEK_SET);
  return true;
}

void InputPcap::NoteSections(long position) {
  constexpr uint32_t kSectionHeader = 0x0A0D0D0A;  // the same in either byte order
  std::FILE* file = pcap_file(handle_.get());
  const long end = ftello(file);
  uint32_t block[2];  // type, length
  for (long at = position; at < end; at += long{block[1]}) {
    fseeko(file, at, SEEK_SET);
    if (std::fread(block, sizeof(block), 1, file) != 1) break;
    if (pcap_is_swapped(handle_.get()) != 0) block[1] = __builtin_bswap32(block[1]);
    if (block[0] == kSectionHeader) {
      section_ = at;
      const auto place = std::lower_bound(sections_.begin(), sections_.end(), at);
      if (place == sections_.end() || *place != at) sections_.insert(place, at);
    }
    if (block[1] < sizeof(block)) break;
  }
  fseeko(file, end, SEEK_SET);
}

bool InputPcap::Wanted(const pcap_pkthdr& header, const uint8_t* record) const {
  if (link_type_ == DLT_EN10MB && header.caplen >= kPlainHeaders && IsPlainUdp(record)) {
    return port_ == 0 || PlainDestinationPort(record) == port_;
  }
  return pcap_offline_filter(&filter_.program, &header, record) != 0;
}

int InputPcap::NextPacket(PacketView& packet, long* position, bool record, size_t largest) {
  if (!handle_) return -1;
  if (position != nullptr) {
    std::FILE* file = pcap_file(handle_.get());
    if (record) {
      *position = ftello(file);
    } else {
      fseeko(file, *position, SEEK_SET);
    }
  }

  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  if (!ReadRecord(&header, &data)) return -1;
  if (!Wanted(*header, data)) return 0;

  const std::optional<size_t> offset = PayloadOffset(link_type_, data, header->caplen);
  if (!offset || header->len < *offset || header->caplen < header->len) return 0;
  const size_t length = header->len - *offset;
  if (length > largest || length == 0) return 0;
  packet = {data + *offset, length,
            static_cast<double>(header->ts.tv_sec) + static_cast<double>(header->ts.tv_usec) * 1e-6};
  return static_cast<int>(length);
}

int InputPcap::RecvPacket(std::shared_ptr<Buffer>& buffer, const int& /*size*/, long* position,
                          const bool& record) {
  PacketView packet;
  const int length = NextPacket(packet, position, record, buffer->capacity - buffer->offset);
  if (length <= 0) return length;
  std::memcpy(buffer->data.get() + buffer->offset, packet.data, packet.length);
  buffer->offset = 0;
  buffer->length = packet.length;
  buffer->received = packet.received;
  return length;
}

}  // namespace tevoro::lidar
