// SPDX-License-Identifier: Apache-2.0
#include "input/link_header.h"

#include <pcap/dlt.h>

namespace tevoro::lidar {
namespace {

constexpr size_t kUdpHeader = 8;
constexpr size_t kShortestIpv4Header = 20;
constexpr size_t kIpv6Header = 40;
constexpr size_t kEthernetHeader = 14;

/// Length of the IP header that starts at `ip`; nothing where there is none.
std::optional<size_t> IpHeaderLength(const uint8_t* ip, size_t captured) {
  if (captured == 0) return std::nullopt;
  const size_t words = ip[0] & 0x0F;
  switch (ip[0] >> 4) {
    case 4:
      if (words * 4 < kShortestIpv4Header) return std::nullopt;
      return words * 4;
    case 6:
      return kIpv6Header;
    default:
      return std::nullopt;
  }
}

constexpr uint16_t kIpv4EtherType = 0x0800;

/// Where the link header names its protocol.
std::optional<size_t> EtherTypeOffset(int link_type) {
  switch (link_type) {
    case DLT_EN10MB:
      return 12;
    case DLT_LINUX_SLL:
      return 14;
    case DLT_LINUX_SLL2:
      return 0;
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<size_t> LinkHeaderLength(int link_type) {
  switch (link_type) {
    case DLT_EN10MB:
      return kEthernetHeader;
    case DLT_LINUX_SLL:
      return 16;
    case DLT_LINUX_SLL2:
      return 20;
    case DLT_NULL:
    case DLT_LOOP:
      return 4;
    case DLT_RAW:
    case DLT_IPV4:
    case DLT_IPV6:
      return 0;
    default:
      return std::nullopt;
  }
}

std::optional<uint16_t> EtherType(int link_type, const uint8_t* record, size_t captured) {
  const std::optional<size_t> at = EtherTypeOffset(link_type);
  if (!at || captured < *at + 2) return std::nullopt;
  return static_cast<uint16_t>(record[*at] << 8 | record[*at + 1]);
}

std::optional<size_t> PayloadOffset(int link_type, const uint8_t* record, size_t captured) {
  const std::optional<size_t> link = LinkHeaderLength(link_type);
  if (!link || captured <= *link) return std::nullopt;
  std::optional<size_t> ip = IpHeaderLength(record + *link, captured - *link);
  if (link_type == DLT_EN10MB &&
      (EtherType(link_type, record, captured) != kIpv4EtherType || !ip || record[*link] >> 4 != 4)) {
    ip = kShortestIpv4Header;
  }
  if (!ip || captured < *link + *ip + kUdpHeader) return std::nullopt;
  return *link + *ip + kUdpHeader;
}

bool IsPlainUdp(const uint8_t* record) {
  const uint8_t* ip = record + kEthernetHeader;
  return record[12] == 0x08 && record[13] == 0x00 &&  // EtherType: IPv4
         ip[0] == 0x45 &&                             // version 4, header of five words
         (ip[6] & 0x3F) == 0 && ip[7] == 0 &&         // neither more fragments nor a fragment offset
         ip[9] == 17;                                 // protocol: UDP
}

uint16_t PlainDestinationPort(const uint8_t* record) {
  return static_cast<uint16_t>(record[36] << 8 | record[37]);
}

}  // namespace tevoro::lidar
