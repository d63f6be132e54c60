// SPDX-License-Identifier: Apache-2.0
#include "captures/dissector.h"

#include <algorithm>
#include <span>
#include <utility>

#include "captures/ip_headers.h"
#include "input/link_header.h"

namespace orva {
namespace {

constexpr size_t kTag = 4;  ///< bytes of a VLAN tag: its own word, and the type of what follows

uint16_t Word(std::span<const uint8_t> bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

std::array<uint8_t, 4> Address(std::span<const uint8_t> bytes, size_t at) {
  return {bytes[at], bytes[at + 1], bytes[at + 2], bytes[at + 3]};
}

/// Over a UDP datagram with its checksum, and the addresses: 0 where the checksum is right.
uint32_t FoldedSum(std::span<const uint8_t> udp, const FragmentKey& key) {
  uint32_t sum = static_cast<uint32_t>(kUdp + udp.size());
  for (size_t i = 0; i < 4; i += 2) {
    sum += Word(key.source, i);
    sum += Word(key.destination, i);
  }
  for (size_t i = 0; i < udp.size(); ++i) sum += static_cast<uint32_t>(udp[i]) << (i % 2 == 0 ? 8 : 0);
  while (sum > 0xFFFF) sum = (sum >> 16) + (sum & 0xFFFF);
  return sum ^ 0xFFFF;
}

/// The datagram whose bytes from the UDP header on are `udp`; or nothing, where its header contradicts them.
std::optional<Datagram> ParseUdp(std::span<const uint8_t> udp, const FragmentKey& key, int64_t time_ns) {
  const size_t length = udp.size() < kUdpHeader ? 0 : Word(udp, 4);
  if (length < kUdpHeader || length > udp.size()) return std::nullopt;
  Datagram datagram{.endpoints = {key.source, key.destination, Word(udp, 0), Word(udp, 2)}, .packet = {}};
  datagram.packet.payload.assign(udp.begin() + kUdpHeader, udp.begin() + static_cast<std::ptrdiff_t>(length));
  datagram.packet.time_ns = time_ns;
  return datagram;
}

}  // namespace

std::optional<Datagram> Dissector::Take(const Record& record, Tally& tally) {
  const std::span<const uint8_t> bytes = record.bytes;
  const Fate too_short = record.sent > bytes.size() ? Fate::kCut : Fate::kMalformed;
  size_t at = *tevoro::lidar::LinkHeaderLength(link_type_);
  bool tagged = false;
  if (auto type = tevoro::lidar::EtherType(link_type_, bytes.data(), bytes.size())) {
    while (IsVlan(*type) && at + kTag <= bytes.size()) {
      type = Word(bytes, at + 2);
      at += kTag;
      tagged = true;
    }
    const bool is_ip = *type == kIpv4 || *type == kIpv6;
    if (!is_ip) {
      tally.Add(IsVlan(*type) ? too_short : Fate::kNoIp);
      return std::nullopt;
    }
  }
  if (at >= bytes.size()) {
    tally.Add(too_short);
    return std::nullopt;
  }
  switch (bytes[at] >> 4) {
    case 4:
      return TakeIp(record, at, tagged, tally);
    case 6:
      tally.Add(Fate::kIpv6);
      return std::nullopt;
    default:
      tally.Add(Fate::kNoIp);
      return std::nullopt;
  }
}

std::optional<Datagram> Dissector::TakeIp(const Record& record, size_t at, bool tagged, Tally& tally) {
  const std::span<const uint8_t> ip = record.bytes.subspan(at);
  const size_t sent = record.sent - at;
  const Fate too_short = sent > ip.size() ? Fate::kCut : Fate::kMalformed;
  const auto refuse = [&tally](Fate fate) {
    tally.Add(fate);
    return std::nullopt;
  };
  if (ip.size() < kIpv4Header) return refuse(too_short);
  if (ip[9] != kUdp) return refuse(Fate::kOtherProtocol);
  const size_t header = static_cast<size_t>(ip[0] & 0x0F) * 4;
  // A network card that splits long packets itself is handed them with a length of 0.
  const size_t total = Word(ip, 2) == 0 ? sent : Word(ip, 2);
  if (header < kIpv4Header || total < header || total > sent) return refuse(Fate::kMalformed);
  if (total > ip.size()) return refuse(Fate::kCut);

  const FragmentKey key = {Address(ip, kIpv4Source), Address(ip, kIpv4Destination), Word(ip, 4)};
  const std::span<const uint8_t> content = ip.subspan(header, total - header);
  const uint16_t fragment = Word(ip, 6);
  const bool more = (fragment & 0x2000) != 0;
  const size_t offset = static_cast<size_t>(fragment & 0x1FFF) * 8;
  if (!more && offset == 0) {
    std::optional<Datagram> datagram = ParseUdp(content, key, record.time_ns);
    if (!datagram) return refuse(Fate::kMalformed);
    datagram->fate = tagged ? Fate::kStripped : Fate::kTaken;
    return datagram;
  }

  const auto whole = reassembly_.Add({key, record.time_ns, offset, more, content});
  if (!whole) return std::nullopt;
  std::optional<Datagram> datagram = ParseUdp(whole->bytes, key, record.time_ns);
  const bool has_sum = datagram && Word(whole->bytes, 6) != 0;
  // Fragments of two datagrams with one identification can look like one whole.
  if (!datagram || (has_sum && FoldedSum({whole->bytes.data(), Word(whole->bytes, 4)}, key) != 0)) {
    tally.Add(Fate::kMalformed, whole->fragments);
    return std::nullopt;
  }
  datagram->records = whole->fragments;
  datagram->fate = Fate::kJoined;
  return datagram;
}

void Dissector::Finish(Tally& tally) {
  reassembly_.GiveUp();
  tally.Add(Fate::kIncomplete, reassembly_.lost());
  tally.Add(Fate::kRepeated, reassembly_.repeated());
}

}  // namespace orva
