// SPDX-License-Identifier: Apache-2.0
#include "input/input_pcap.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "common/console.h"
#include "input/link_header.h"
#include "input/record_time.h"

namespace tevoro::lidar {
namespace {

/// The C library's 4 KiB would mean a system call for every third packet.
constexpr size_t kFileBuffer = 64 * 1024;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

bool Seek(std::FILE* file, long position) {
  return fseeko(file, position, SEEK_SET) == 0;
}

/// Lets libpcap read the file through `buffer`. Null, and the file is closed, for what is not a capture.
pcap_t* OpenCapture(File owner, std::unique_ptr<char[]>& buffer) {
  if (!owner) return nullptr;
  buffer = std::make_unique_for_overwrite<char[]>(kFileBuffer);
  std::FILE* file = owner.get();
  std::setvbuf(file, buffer.get(), _IOFBF, kFileBuffer);
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* handle = pcap_fopen_offline(file, error);
  if (handle == nullptr) {
    owner.reset();  // before the buffer that it reads through
    return nullptr;
  }
  owner.release();  // libpcap's from here on
  // After one seek the C library keeps count of the offset; before, each ftell is a system call.
  Seek(file, ftello(file));
  return handle;
}

File OpenFile(const std::string& path) {
  struct stat status {};
  // A pipe could neither be rewound nor be waited for.
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  return File(std::fopen(path.c_str(), "rbe"));
}

}  // namespace

InputPcap::InputPcap(const InputParam& param)
    : Input(param), filter_text_(port_ == 0 ? "(udp)" : "(udp dst port " + std::to_string(port_) + ")") {}

bool InputPcap::Init() {
  handle_.reset();
  handle_.reset(OpenCapture(OpenFile(pcap_path_), file_buffer_));
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
    return false;  // Unreached: no test takes libpcap's memory
  is_pcapng_ = IsPcapng(handle_.get());
  marks_.clear();
  known_ = noted_ = ftello(pcap_file(handle_.get()));
  return true;
}

bool InputPcap::ReadRecord(pcap_pkthdr** header, const u_char** data) {
  if (!is_pcapng_) return pcap_next_ex(handle_.get(), header, data) >= 0;
  const long position = ftello(pcap_file(handle_.get()));
  if (!NoteMarks(position)) return false;
  if (!KnowsInterfaces(position) && !ReadUpTo(position)) return false;
  return ReadNoted(header, data) >= 0;
}

bool InputPcap::KnowsInterfaces(long position) const {
  if (position == known_) return true;
  const auto [first, last] = std::minmax(position, known_);
  const auto mark = std::lower_bound(marks_.begin(), marks_.end(), first,
                                     [](const Mark& m, long place) { return m.position < place; });
  // A section's header, read again, makes libpcap forget the interfaces before.
  const bool opens = mark != marks_.end() && mark->section && mark->position == position;
  return opens || mark == marks_.end() || mark->position >= last;
}

bool InputPcap::ReadUpTo(long position) {
  const auto section = std::find_if(marks_.rbegin(), marks_.rend(),
                                    [=](const Mark& m) { return m.section && m.position < position; });
  const bool found = section != marks_.rend();
  if (!(found ? Seek(pcap_file(handle_.get()), section->position) : Rewind())) return false;
  std::FILE* file = pcap_file(handle_.get());
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  while (ftello(file) < position) {
    if (ReadNoted(&header, &data) < 0) return false;
  }
  return Seek(file, position);
}

int InputPcap::ReadNoted(pcap_pkthdr** header, const u_char** data) {
  const int result = pcap_next_ex(handle_.get(), header, data);
  known_ = ftello(pcap_file(handle_.get()));
  return NoteMarks(known_) ? result : PCAP_ERROR;
}

bool InputPcap::NoteMarks(long end) {
  constexpr uint32_t kSection = 0x0A0D0D0A;  // the same in either byte order
  constexpr uint32_t kInterface = 1;
  constexpr uint32_t kSmallestBlock = 12;
  if (noted_ >= end) return true;
  std::FILE* file = pcap_file(handle_.get());
  const long place = ftello(file);
  const bool swapped = pcap_is_swapped(handle_.get()) != 0;  // one order in the whole file, or libpcap stops
  uint32_t block[2];                                         // type, length
  while (noted_ < end) {
    if (!Seek(file, noted_)) return false;
    if (std::fread(block, sizeof(block), 1, file) != 1) break;
    const uint32_t type = swapped ? __builtin_bswap32(block[0]) : block[0];
    const uint32_t length = swapped ? __builtin_bswap32(block[1]) : block[1];
    if (block[0] == kSection || type == kInterface) marks_.push_back({noted_, block[0] == kSection});
    if (length < kSmallestBlock) break;
    noted_ += long{length};
  }
  return Seek(file, place);
}

bool InputPcap::Rewind() {
  const int copy = fcntl(fileno(pcap_file(handle_.get())), F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return false;
  File file(fdopen(copy, "rb"));
  if (!file) {  // Unreached: no test takes the memory of the C library's own
    close(copy);
    return false;
  }
  std::rewind(file.get());
  std::unique_ptr<char[]> buffer;
  pcap_t* handle = OpenCapture(std::move(file), buffer);
  if (handle == nullptr) return false;
  // Both streams have one place in the file, and closing the one before may move it.
  const int descriptor = fileno(pcap_file(handle));
  const off_t place = lseek(descriptor, 0, SEEK_CUR);
  handle_.reset(handle);  // before the buffer that the one before reads through
  lseek(descriptor, place, SEEK_SET);
  file_buffer_ = std::move(buffer);
  known_ = ftello(pcap_file(handle));
  return true;
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
    } else if (!Seek(file, *position)) {
      return -1;
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
            static_cast<double>(SecondsOf(header->ts, is_pcapng_)) +
                static_cast<double>(header->ts.tv_usec) * 1e-6};
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
