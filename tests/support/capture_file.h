// SPDX-License-Identifier: Apache-2.0
//
// Capture files of every encoding, byte by byte, with records that no sound network writes.
#pragma once

#include <pcap/dlt.h>

#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>
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

/// An Ethernet frame around an IPv4 packet, or around what `ether_type` says.
inline Bytes EthernetFrame(const Bytes& packet, uint16_t ether_type = 0x0800) {
  Bytes frame(12, 2);
  AppendBigEndian(frame, ether_type, 2);
  frame.insert(frame.end(), packet.begin(), packet.end());
  return frame;
}

enum class Encoding { kMicroseconds, kNanoseconds, kOtherByteOrder, kPcapng, kPcapngSeconds };

/// Written when the object goes. The records lie a second apart; those of a pcapng take turns over its
/// interfaces.
class CaptureFile {
 public:
  explicit CaptureFile(std::string path, Encoding encoding = Encoding::kMicroseconds, uint32_t interfaces = 1,
                       uint32_t link_type = DLT_EN10MB)
      : path_(std::move(path)), encoding_(encoding), interfaces_(interfaces) {
    if (IsPcapng()) {
      Words({0x0A0D0D0A, 28, 0x1A2B3C4D, 1, 0xFFFFFFFF, 0xFFFFFFFF, 28});
      for (uint32_t i = 0; i < interfaces; ++i) {
        if (encoding == Encoding::kPcapng) Words({1, 20, link_type, 65535, 20});
        if (encoding != Encoding::kPcapng) Words({1, 32, link_type, 65535, 0x10009, 0, 0, 32});
      }
    } else {
      Words({encoding == Encoding::kNanoseconds ? 0xA1B23C4D : 0xA1B2C3D4,
             encoding == Encoding::kOtherByteOrder ? 0x00020004U : 0x00040002U, 0, 0, 65535, link_type});
    }
  }
  ~CaptureFile() {
    std::ofstream(path_, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes_.data()), static_cast<std::streamsize>(bytes_.size()));
  }
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;

  /// When the next record comes; each later one comes a second after the one before.
  CaptureFile& At(uint64_t second, uint32_t fraction) {
    second_ = second;
    fraction_ = fraction;
    return *this;
  }
  /// A raw record. `cut` bytes at its end were not captured.
  CaptureFile& Record(const Bytes& frame, size_t cut = 0) {
    const auto length = static_cast<uint32_t>(frame.size());
    const auto captured = static_cast<uint32_t>(length - cut);
    const uint32_t block = 32 + (captured + 3) / 4 * 4;
    const bool pcapng = IsPcapng();
    if (pcapng) Words({6, block, count_++ % interfaces_, static_cast<uint32_t>(second_ >> 32)});
    Words({static_cast<uint32_t>(second_++)});
    if (!pcapng) Words({fraction_});
    Words({captured, length});
    bytes_.insert(bytes_.end(), frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(captured));
    if (!pcapng) return *this;
    bytes_.resize((bytes_.size() + 3) / 4 * 4);
    Words({block});
    return *this;
  }
  CaptureFile& Datagram(uint16_t destination_port, const Bytes& payload, size_t option_words = 0) {
    return Record(EthernetFrame(Ipv4Udp(destination_port, payload, option_words)));
  }

 private:
  bool IsPcapng() const { return encoding_ == Encoding::kPcapng || encoding_ == Encoding::kPcapngSeconds; }
  void Words(std::initializer_list<uint32_t> words) {
    for (uint32_t word : words) {
      if (encoding_ != Encoding::kOtherByteOrder) word = __builtin_bswap32(word);
      AppendBigEndian(bytes_, word, 4);
    }
  }

  const std::string path_;
  const Encoding encoding_;
  const uint32_t interfaces_;
  uint32_t count_ = 0;
  uint64_t second_ = 1700000000;  ///< in a pcapng, in the unit of its interfaces; else 32 bits
  uint32_t fraction_ = 0;         ///< micro- or nanoseconds, as the file counts; a pcapng has none
  Bytes bytes_;
};

inline Bytes ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace orva::test
