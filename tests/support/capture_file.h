// SPDX-License-Identifier: Apache-2.0
//
// Capture files: written through libpcap, and turned into the other encodings by hand.
#pragma once

#include <pcap/pcap.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace orva::test {

using Bytes = std::vector<uint8_t>;

inline void AppendBigEndian(Bytes& bytes, uint64_t value, size_t count) {
  for (size_t i = count; i-- > 0;) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

inline Bytes Ipv4Udp(uint16_t destination_port, const Bytes& payload, size_t option_words = 0,
                     uint8_t protocol = 17) {
  const size_t header = 20 + 4 * option_words;
  Bytes packet = {static_cast<uint8_t>(0x45 + option_words), 0};
  AppendBigEndian(packet, header + 8 + payload.size(), 2);
  AppendBigEndian(packet, 0, 4);
  packet.insert(packet.end(), {64, protocol, 0, 0, 192, 168, 1, 200, 192, 168, 1, 100});
  packet.resize(header, 1);  // options: no operation
  AppendBigEndian(packet, 6699, 2);
  AppendBigEndian(packet, destination_port, 2);
  AppendBigEndian(packet, 8 + payload.size(), 2);
  AppendBigEndian(packet, 0, 2);
  packet.insert(packet.end(), payload.begin(), payload.end());
  return packet;
}

/// Puts the header of a link type in front of an IPv4 packet.
inline Bytes LinkFrame(int link_type, const Bytes& packet, uint16_t ether_type = 0x0800) {
  Bytes frame;
  switch (link_type) {
    case DLT_EN10MB:
      frame.resize(12, 2);
      AppendBigEndian(frame, ether_type, 2);
      break;
    case DLT_LINUX_SLL:
      frame.resize(14, 0);
      AppendBigEndian(frame, ether_type, 2);
      break;
    case DLT_LINUX_SLL2:
      AppendBigEndian(frame, ether_type, 2);
      frame.resize(20, 0);
      break;
    case DLT_NULL:
      AppendBigEndian(frame, 0x02000000, 4);  // AF_INET in the byte order of the machine that wrote it
      break;
    default:
      break;
  }
  frame.insert(frame.end(), packet.begin(), packet.end());
  return frame;
}

class CaptureFile {
 public:
  explicit CaptureFile(const std::string& path, int link_type = DLT_EN10MB, bool nanoseconds = false)
      : link_type_(link_type),
        pcap_(pcap_open_dead_with_tstamp_precision(
            link_type, 65535, nanoseconds ? PCAP_TSTAMP_PRECISION_NANO : PCAP_TSTAMP_PRECISION_MICRO)),
        dumper_(pcap_dump_open(pcap_, path.c_str())) {}
  ~CaptureFile() {
    pcap_dump_close(dumper_);
    pcap_close(pcap_);
  }
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;

  /// When the next record comes; each later one comes a second after the one before.
  CaptureFile& At(long second, long fraction) {
    second_ = second;
    fraction_ = fraction;
    return *this;
  }
  /// A raw record. `cut` bytes at its end were not captured.
  CaptureFile& Record(const Bytes& frame, size_t cut = 0) {
    pcap_pkthdr header{};
    header.ts.tv_sec = second_++;
    header.ts.tv_usec = fraction_;
    header.len = static_cast<bpf_u_int32>(frame.size());
    header.caplen = static_cast<bpf_u_int32>(frame.size() - cut);
    pcap_dump(reinterpret_cast<u_char*>(dumper_), &header, frame.data());
    return *this;
  }
  CaptureFile& Datagram(uint16_t destination_port, const Bytes& payload, size_t option_words = 0) {
    return Record(LinkFrame(link_type_, Ipv4Udp(destination_port, payload, option_words)));
  }

 private:
  int link_type_;
  pcap_t* pcap_;
  pcap_dumper_t* dumper_;
  long second_ = 1700000000;
  long fraction_ = 0;  ///< micro- or nanoseconds, as the file counts
};

inline Bytes ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline uint32_t Word(const Bytes& bytes, size_t at) {
  return bytes[at] | bytes[at + 1] * 0x100U | bytes[at + 2] * 0x10000U | bytes[at + 3] * 0x1000000U;
}

/// The same capture as a machine of the other byte order writes it.
inline Bytes ByteSwapped(Bytes capture) {
  const auto swap = [&capture](size_t at, size_t count) {
    std::reverse(capture.begin() + static_cast<long>(at), capture.begin() + static_cast<long>(at + count));
  };
  size_t at = 24;
  while (at < capture.size()) {
    const size_t next = at + 16 + Word(capture, at + 8);
    for (size_t field = at; field < at + 16; field += 4) swap(field, 4);
    at = next;
  }
  for (const size_t field : {0U, 8U, 12U, 16U, 20U}) swap(field, 4);
  swap(4, 2);
  swap(6, 2);
  return capture;
}

/// The same capture as pcapng: section header, interface, one enhanced packet block a record.
inline Bytes Pcapng(const Bytes& capture, uint32_t interfaces = 1) {
  Bytes file;
  const auto word = [&file](uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) file.push_back(static_cast<uint8_t>(value >> shift));
  };
  for (const uint32_t value : {0x0A0D0D0AU, 28U, 0x1A2B3C4DU, 1U, 0xFFFFFFFFU, 0xFFFFFFFFU, 28U}) word(value);
  for (uint32_t i = 0; i < interfaces; ++i) {
    for (const uint32_t value : {1U, 20U, Word(capture, 20), 65535U, 20U}) word(value);
  }
  uint32_t interface = 0;
  for (size_t at = 24; at < capture.size();) {
    const uint32_t length = Word(capture, at + 8);
    const uint32_t block = 32 + (length + 3) / 4 * 4;
    for (const uint32_t value :
         {6U, block, interface++ % interfaces, 0U, Word(capture, at), length, Word(capture, at + 12)})
      word(value);
    const auto data = capture.begin() + static_cast<long>(at + 16);
    file.insert(file.end(), data, data + length);
    file.resize((file.size() + 3) / 4 * 4, 0);
    word(block);
    at += 16 + length;
  }
  return file;
}

}  // namespace orva::test
