// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_RECORD_FILES_H_
#define ORVA_TOOLS_CAPTURES_RECORD_FILES_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "formats/output_file.h"
#include "sim/capture_writer.h"

namespace orva {

struct RotationLimits {
  double megabytes = 0.0;  ///< 10^6 bytes that no file exceeds; 0: no limit
  double seconds = 0.0;    ///< that a file takes from its first packet on; 0: no limit
  std::uint64_t kept = 0;  ///< latest files that are kept; 0: all
};

/// Throws Failure where a recording would replace a file, or be mixed with the numbered files of an earlier
/// one. The latter also with Existing::kReplace: what is left of a longer recording would pass for a part of
/// this one.
void RefuseEarlierFiles(const std::string& path, const RotationLimits& limits, Existing existing);

/// The capture files of a recording. With a limit they are numbered, NAME_0000.pcap and so on, else there is
/// the one file. What was written stays, whatever happens: see sim::CaptureOptions::keep_unfinished. The
/// problems of a file throw std::runtime_error.
class RecordFiles {
 public:
  /// Opens the first file, so that a bad path shows at once.
  RecordFiles(std::string path, const RotationLimits& limits, const sim::CaptureOptions& capture);

  void Write(const sim::TimedPacket& packet);
  /// Completes the latest file. One without a packet is not kept.
  void Finish();

  /// False once the file that is being written was removed.
  bool HasFile() const { return !writer_ || writer_->HasFile(); }
  std::uint64_t packets() const { return packets_; }
  std::uint64_t payload_bytes() const { return payload_bytes_; }
  std::uint64_t files() const { return opened_; }
  /// The file that is being written, or was last.
  const std::string& latest() const { return names_.back(); }

 private:
  using Clock = std::chrono::steady_clock;  // a step of the wall clock must not hold up the rotation

  bool Full(const sim::TimedPacket& next) const;
  void Open();
  void RemoveOldest(std::size_t count);

  const std::string path_;
  const RotationLimits limits_;
  const sim::CaptureOptions capture_;
  std::deque<std::string>
      names_;  ///< of the files that are kept, and before them those that cannot be removed
  bool told_stuck_ = false;
  std::optional<sim::CaptureWriter> writer_;
  std::optional<Clock::time_point> first_packet_;  ///< of the file
  std::uint64_t opened_ = 0;
  std::uint64_t packets_ = 0;
  std::uint64_t payload_bytes_ = 0;
};

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_RECORD_FILES_H_
