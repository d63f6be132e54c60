// SPDX-License-Identifier: Apache-2.0
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "expect.h"
#include "input/input_pcap.h"
#include "input/link_header.h"
#include "input/record_time.h"
#include "support/capture_file.h"
#include "targets.h"

namespace orva::fuzz {
namespace {

using tevoro::lidar::Buffer;
using tevoro::lidar::InputPcap;

struct Record {
  long position;
  std::vector<uint8_t> payload;
  double received;
};

int Receive(InputPcap& input, std::shared_ptr<Buffer>& buffer, Record& place, bool record) {
  const int result = input.RecvPacket(buffer, 1546, &place.position, record);
  ORVA_EXPECT(result >= -1 && result <= 1546);
  if (result > 0) {
    ORVA_EXPECT(buffer->offset == 0 && buffer->length == static_cast<uint64_t>(result));
    place.payload.assign(buffer->data.get(), buffer->data.get() + result);
    place.received = buffer->received;
  }
  return result;
}

/// libpcap's own answer; each program is compiled once.
const bpf_program& Filter(pcap_t* handle, uint16_t port) {
  static auto& programs = *new std::map<std::pair<int, uint16_t>, bpf_program>;  // for good
  const auto [place, fresh] = programs.try_emplace({pcap_datalink(handle), port});
  const std::string text = port == 0 ? "(udp)" : "(udp dst port " + std::to_string(port) + ")";
  if (fresh) pcap_compile(handle, &place->second, text.c_str(), 1, PCAP_NETMASK_UNKNOWN);
  return place->second;
}

/// Lengths and times of the payloads for us, by libpcap alone.
std::vector<std::pair<int, double>> Filtered(const uint8_t* data, size_t size, uint16_t port) {
  std::vector<std::pair<int, double>> packets;
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* handle = pcap_fopen_offline(fmemopen(const_cast<uint8_t*>(data), size, "r"), error);
  ORVA_EXPECT(handle != nullptr);
  const bpf_program& filter = Filter(handle, port);
  pcap_pkthdr* header = nullptr;
  const u_char* record = nullptr;
  while (pcap_next_ex(handle, &header, &record) >= 0) {
    if (pcap_offline_filter(&filter, header, record) == 0 || header->caplen < header->len) continue;
    const auto offset = tevoro::lidar::PayloadOffset(pcap_datalink(handle), record, header->caplen);
    if (!offset || header->len <= *offset || header->len - *offset > 1546) continue;
    const int64_t seconds = tevoro::lidar::SecondsOf(header->ts, tevoro::lidar::IsPcapng(handle));
    packets.emplace_back(header->len - *offset,
                         static_cast<double>(seconds) + static_cast<double>(header->ts.tv_usec) * 1e-6);
  }
  pcap_close(handle);
  return packets;
}

/// Builds a pcapng file of the blocks that the input asks for, sound ones for the most part.
class PcapngFile {
 public:
  explicit PcapngFile(const uint8_t* data, size_t size) : data_(data), left_(size), swapped_(size % 2 != 0) {
    bytes_.reserve(4096);
    BeginSection();
    Interface();
    for (int i = 0; i < 32 && left_ > 0; ++i) Add();
  }
  const std::vector<uint8_t>& Bytes() const { return bytes_; }

 private:
  void Add() {
    const uint8_t deed = Next();
    switch (deed % 8) {
      case 0:
        swapped_ = swapped_ != (deed / 8 % 2 != 0);
        BeginSection();
        break;
      case 1:
        Interface();
        break;
      case 2:
        Block(Next() % 16, [&] { Append(Raw()); });
        break;
      case 3:
        bytes_.insert(bytes_.end(), deed, Next());
        break;
      default:
        Packet(deed / 8);
    }
  }
  void BeginSection() {
    Block(0x0A0D0D0A, [&] { Words({0x1A2B3C4D, swapped_ ? 0x10000U : 1U, 0xFFFFFFFF, 0xFFFFFFFF}); });
  }
  void Interface() {
    const uint8_t resolution = Next();  // 6: microseconds; 0x80 and more: powers of two
    Block(1, [&] {
      Words({swapped_ ? 0x10000U : 1U, 65535, swapped_ ? 0x90001U : 0x10009U});
      bytes_.insert(bytes_.end(), {resolution, 0, 0, 0, 0, 0, 0, 0});
    });
  }
  void Packet(uint8_t kind) {
    const std::vector<uint8_t>& frame = Frame(kind % 4 == 0 ? 99 : 2368, Raw());
    const auto length = static_cast<uint32_t>(frame.size());
    const uint32_t interface = Next() % 4;
    Block(kind % 8 == 7 ? 3 : 6, [&] {
      if (kind % 8 == 7) {
        Words({length});
      } else {
        Words({interface, Next(), Next() * 0x1010101U, length, length + kind / 16});
      }
      Append(frame);
      bytes_.insert(bytes_.end(), -length % 4, 0);
    });
  }
  template <typename Body>
  void Block(uint32_t type, const Body& body) {
    const size_t begin = bytes_.size();
    Words({type, 0});
    body();
    Words({static_cast<uint32_t>(bytes_.size() - begin + 4)});
    std::copy_n(bytes_.end() - 4, 4, bytes_.begin() + static_cast<ptrdiff_t>(begin) + 4);
  }
  void Words(std::initializer_list<uint32_t> words) {
    for (const uint32_t word : words)
      test::AppendBigEndian(bytes_, swapped_ ? word : __builtin_bswap32(word), 4);
  }
  void Append(const std::vector<uint8_t>& bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  /// Made once for each port and length; only the payload changes.
  static const std::vector<uint8_t>& Frame(uint16_t port, const std::vector<uint8_t>& payload) {
    static auto& frames = *new std::map<std::pair<uint16_t, size_t>, std::vector<uint8_t>>;  // for good
    std::vector<uint8_t>& frame = frames[{port, payload.size()}];
    if (frame.empty()) frame = test::EthernetFrame(test::Ipv4Udp(port, payload));
    std::copy(payload.rbegin(), payload.rend(), frame.rbegin());
    return frame;
  }
  uint8_t Next() { return left_ == 0 ? uint8_t{0} : (--left_, *data_++); }
  const std::vector<uint8_t>& Raw() {
    raw_.resize(Next() % 32);
    for (uint8_t& byte : raw_) byte = Next();
    return raw_;
  }

  const uint8_t* data_;
  size_t left_;
  bool swapped_;
  std::vector<uint8_t> raw_;
  std::vector<uint8_t> bytes_;
};

}  // namespace

void Capture(const uint8_t* data, size_t size) {
  static const int file = memfd_create("capture", 0);
  ORVA_EXPECT(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
  InputParam param;
  param.msop_port = size % 2 == 0 ? 2368 : 0;
  param.pcap_path = "/proc/self/fd/" + std::to_string(file);
  InputPcap input(param);
  if (!input.Init()) return;

  auto buffer = std::make_shared<Buffer>();
  std::vector<Record> records;
  std::vector<std::pair<int, double>> packets;
  Record record{};
  int result = 0;
  while ((result = Receive(input, buffer, record, true)) != -1) {
    if (result > 0) packets.emplace_back(result, record.received);
    if (result > 0 && records.size() < 16) records.push_back(record);
  }
  ORVA_EXPECT(packets == Filtered(data, size, param.msop_port));
  // The first records are found again where they stood, from last to first and then every third.
  std::reverse(records.begin(), records.end());
  for (size_t i = 0; i < 2 * records.size(); ++i) {
    const Record& known = records[i < records.size() ? i : (i * 3) % records.size()];
    Record again{known.position, {}, 0.0};
    ORVA_EXPECT(Receive(input, buffer, again, false) > 0);
    ORVA_EXPECT(again.payload == known.payload && again.received == known.received);
  }
}

void Pcapng(const uint8_t* data, size_t size) {
  const PcapngFile file(data, size);
  Capture(file.Bytes().data(), file.Bytes().size());
}

}  // namespace orva::fuzz
