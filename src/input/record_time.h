// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pcap/pcap.h>

#include <cstdint>

namespace tevoro::lidar {

/// By the version of the file format, as libpcap tells it; a classic capture has 2.
inline bool IsPcapng(pcap_t* capture) {
  return pcap_major_version(capture) == 1;
}

/// When a record was captured, in seconds since the epoch. A classic capture has 32 bits for them, good until
/// 2106, which libpcap takes as signed or as unsigned by the file's byte order. A pcapng may hold any time.
inline int64_t SecondsOf(const timeval& time, bool is_pcapng) {
  return is_pcapng ? int64_t{time.tv_sec} : int64_t{static_cast<uint32_t>(time.tv_sec)};
}

}  // namespace tevoro::lidar
