// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "sensor.h"

struct pcap;
struct pcap_dumper;

namespace orva::sim {

/// What precedes the IPv4 header of each record.
enum class Framing {
  kEthernet,
  kLinuxCooked,    ///< as `tcpdump -i any` writes, version 1
  kLinuxCookedV2,  ///< as newer ones write
  kRawIp,
  kLoopback,  ///< BSD null: an address family
};

/// From where to where a datagram went.
struct Endpoints {
  std::array<uint8_t, 4> source{};
  std::array<uint8_t, 4> destination{};
  uint16_t source_port = 0;
  uint16_t destination_port = 0;
};

struct CaptureOptions {
  Framing framing = Framing::kEthernet;
  bool nanoseconds = false;  ///< precision of the times; otherwise microseconds
  bool ip_options = false;   ///< four bytes of IPv4 options in every packet
  /// For what cannot be made again: every record reaches the system at once, and when writing fails or ends
  /// without Finish, the whole records so far are kept under the file's name (none: no file).
  bool keep_unfinished = false;
  std::array<uint8_t, 4> source{192, 168, 1, 10};
  std::array<uint8_t, 4> destination{192, 168, 1, 100};
  uint16_t source_port = 6688;
  uint16_t destination_port = 6699;
};

/// A pcap file that appears under its name only when it is complete: it is written as NAME.part and renamed
/// by Finish; without Finish nothing is left (but see keep_unfinished). A path that is no regular file (a
/// pipe, a device) is written directly. Every problem throws std::runtime_error with the path and the
/// system's reason.
class CaptureWriter {
 public:
  explicit CaptureWriter(std::filesystem::path path, const CaptureOptions& options = {});
  ~CaptureWriter();
  CaptureWriter(const CaptureWriter&) = delete;
  CaptureWriter& operator=(const CaptureWriter&) = delete;

  void Write(const TimedPacket& packet);
  /// With addresses of its own, instead of those of the options.
  void Write(const TimedPacket& packet, const Endpoints& endpoints);
  void Finish();
  /// False once the file was removed: it goes on taking what is written, for nobody.
  bool HasFile() const;
  /// Bytes of the whole records so far, the file's header included.
  uint64_t Size() const { return size_; }

 private:
  struct Closer {
    void operator()(pcap* handle) const;
    void operator()(pcap_dumper* dumper) const;
  };

  [[noreturn]] void Fail(const std::string& reason) const;
  void AppendLinkHeader();
  void AppendIpHeader(const Endpoints& endpoints, size_t payload_size);
  void AppendUdp(const Endpoints& endpoints, const std::vector<uint8_t>& payload);

  const std::filesystem::path path_;
  const CaptureOptions options_;
  std::filesystem::path part_;  ///< what is being written; equal to path_ when direct
  std::unique_ptr<pcap, Closer> handle_;
  std::unique_ptr<pcap_dumper, Closer> dumper_;
  uint64_t size_ = 0;
  uint16_t identification_ = 0;
  std::vector<uint8_t> record_;
};

}  // namespace orva::sim
