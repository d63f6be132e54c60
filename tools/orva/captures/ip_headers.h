// SPDX-License-Identifier: Apache-2.0
//
// What records of a capture show in front of a payload, beyond what the driver itself reads.
#ifndef ORVA_TOOLS_CAPTURES_IP_HEADERS_H_
#define ORVA_TOOLS_CAPTURES_IP_HEADERS_H_

#include <cstddef>
#include <cstdint>

namespace orva {

// EtherTypes.
inline constexpr uint16_t kIpv4 = 0x0800;
inline constexpr uint16_t kIpv6 = 0x86DD;
constexpr bool IsVlan(uint16_t ether_type) {
  return ether_type == 0x8100 || ether_type == 0x88A8 || ether_type == 0x9100;
}

inline constexpr uint8_t kUdp = 17;  ///< the protocol, in an IP header

// Lengths and offsets in bytes.
inline constexpr size_t kIpv4Header = 20;  ///< without options
inline constexpr size_t kIpv4Source = 12;
inline constexpr size_t kIpv4Destination = 16;
inline constexpr size_t kIpv6Header = 40;
inline constexpr size_t kUdpHeader = 8;

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_IP_HEADERS_H_
