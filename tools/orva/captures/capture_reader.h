// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_CAPTURE_READER_H_
#define ORVA_TOOLS_CAPTURES_CAPTURE_READER_H_

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "captures/recorded_bytes.h"

struct pcap;

namespace orva {

/// A record of a capture, as long as the next one has not been read.
struct Record {
  int64_t time_ns = 0;               ///< UTC, since the epoch; 0 to 2^32 s
  std::span<const uint8_t> bytes{};  ///< what was captured
  size_t sent = 0;                   ///< length on the wire; more than `bytes` where a snapshot length cut it
};

/// A pcap or pcapng capture, also compressed (gzip, zstd) or from standard input, from its begin to its end.
class CaptureReader {
 public:
  /// Throws Failure where the path is no capture, or one of a link type that is not known.
  explicit CaptureReader(const std::string& path);
  ~CaptureReader();
  CaptureReader(const CaptureReader&) = delete;
  CaptureReader& operator=(const CaptureReader&) = delete;

  /// False at the end.
  bool Next(Record& record);
  int link_type() const { return link_type_; }
  /// Once Next has returned false: why that came before the end of the recording; empty where it did not.
  const std::string& damage() const { return damage_; }

 private:
  struct Close {
    void operator()(pcap* capture) const;
  };

  std::unique_ptr<RecordedBytes> bytes_;  ///< outlives the stream over it
  std::unique_ptr<pcap, Close> capture_;
  int link_type_ = 0;
  std::string damage_;
};

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_CAPTURE_READER_H_
