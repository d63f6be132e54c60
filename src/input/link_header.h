// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace tevoro::lidar {

/// Bytes in front of the IP header for a capture's link type (a DLT_ value); nothing for a link type that
/// the driver does not read.
std::optional<size_t> LinkHeaderLength(int link_type);

/// The EtherType that a record's link header names; nothing where the link type has none, or the record is
/// shorter than the header.
std::optional<uint16_t> EtherType(int link_type, const uint8_t* record, size_t captured);

/// Bytes in front of the UDP payload of a record of which `captured` bytes are at hand. An Ethernet record
/// counts as 42 (Ethernet, IPv4 without options, UDP) unless it shows IPv4 options. Nothing where the
/// record is shorter than its headers or holds no IP.
std::optional<size_t> PayloadOffset(int link_type, const uint8_t* record, size_t captured);

/// Ethernet, IPv4 without options and UDP in front of a payload.
inline constexpr size_t kPlainHeaders = 14 + 20 + 8;

/// Is an Ethernet record of at least kPlainHeaders bytes an unfragmented UDP datagram in IPv4 without
/// options?
bool IsPlainUdp(const uint8_t* record);

/// Of a record that is plain.
uint16_t PlainDestinationPort(const uint8_t* record);

}  // namespace tevoro::lidar
