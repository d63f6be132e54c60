// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_EXTRACTION_H_
#define ORVA_TOOLS_CAPTURES_EXTRACTION_H_

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "captures/dissector.h"
#include "captures/selection.h"

namespace orva {

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

/// Calls `take` with what `selection` chooses from the inputs, in the order of the capture times. Returns
/// early after Ctrl-C, and once `take` returns false. Throws Failure, and what `take` throws.
Extraction Extract(const std::vector<std::string>& inputs, const Selection& selection,
                   const std::function<bool(const Datagram&)>& take);

/// Says what became of the records.
void Report(const Extraction& result);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_EXTRACTION_H_
