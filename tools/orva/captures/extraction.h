// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_EXTRACTION_H_
#define ORVA_TOOLS_CAPTURES_EXTRACTION_H_

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "captures/dissector.h"
#include "captures/frame_counter.h"
#include "captures/time_window.h"

namespace orva {

using Ipv4Address = std::array<uint8_t, 4>;

/// What is taken of a recording; without a wish, everything that the driver reads.
struct Selection {
  std::optional<uint16_t> port{};  ///< that the datagrams went to
  std::optional<uint16_t> sensor_port{};
  std::optional<Ipv4Address> source{};
  TimeWindow window{};
  std::optional<LidarType> model{};  ///< with `frames`
  std::optional<FramesOfPacket> frames{};
};

/// Where the chosen datagrams go: one capture, or one for each address that sent some. What was written
/// appears under its name only with Finish. Throws std::runtime_error as sim::CaptureWriter does.
class ExtractedFiles {
 public:
  ExtractedFiles(std::string path, bool split_by_source);

  void Write(const Datagram& datagram);
  void Finish();

  struct File {
    std::string path;
    uint64_t packets = 0;
  };
  std::vector<File> files() const;

  /// NAME_192.168.1.200.EXT
  static std::string PathOf(const std::string& path, const Ipv4Address& source);

 private:
  struct Output {
    std::string path;
    std::unique_ptr<sim::CaptureWriter> writer;
    uint64_t packets = 0;
  };

  const std::string path_;
  const bool split_;
  std::map<Ipv4Address, Output> outputs_;
};

struct Extraction {
  uint64_t records = 0;
  uint64_t datagrams_joined = 0;
  Tally tally;
  std::vector<std::string> damage;  ///< of each input that breaks off, with its path
};

/// Copies what `selection` chooses from the inputs to `files`, in the order of the capture times. Returns
/// early after Ctrl-C. Throws Failure and what ExtractedFiles throws.
Extraction Extract(const std::vector<std::string>& inputs, const Selection& selection, ExtractedFiles& files);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_EXTRACTION_H_
