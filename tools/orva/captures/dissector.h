// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_DISSECTOR_H_
#define ORVA_TOOLS_CAPTURES_DISSECTOR_H_

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "captures/capture_reader.h"
#include "captures/reassembly.h"
#include "sim/capture_writer.h"

namespace orva {

/// What became of a record. Each has one fate.
enum class Fate {
  kTaken,     ///< a whole datagram
  kStripped,  ///< a whole datagram, without its VLAN tags
  kJoined,    ///< a fragment of a datagram that was taken
  kIncomplete,
  kRepeated,
  kCut,
  kIpv6,
  kOtherProtocol,
  kNoIp,
  kMalformed,
  kEmpty,
  kTooLong,
  kOtherPort,
  kOtherSource,
  kOtherTime,
  kOtherModel,
  kOtherFrame,
};
inline constexpr size_t kFates = static_cast<size_t>(Fate::kOtherFrame) + 1;

/// Records by their fate.
class Tally {
 public:
  void Add(Fate fate, uint64_t records = 1) { counts_[static_cast<size_t>(fate)] += records; }
  uint64_t operator[](Fate fate) const { return counts_[static_cast<size_t>(fate)]; }

 private:
  std::array<uint64_t, kFates> counts_{};
};

/// An IPv4 UDP datagram, whole.
struct Datagram {
  sim::Endpoints endpoints;
  sim::TimedPacket packet;  ///< at the time of the record that completed it
  uint64_t records = 1;     ///< that it was made of
  Fate fate = Fate::kTaken;
};

/// Finds the datagrams in the records of one capture: behind VLAN tags, and put together from fragments.
class Dissector {
 public:
  explicit Dissector(int link_type, const Reassembly::Limits& limits = {})
      : link_type_(link_type), reassembly_(limits) {}

  /// The datagram that this record completes. The fate of one that completes none is added to the tally, but
  /// for fragments, which Finish adds.
  std::optional<Datagram> Take(const Record& record, Tally& tally);
  void Finish(Tally& tally);

 private:
  std::optional<Datagram> TakeIp(const Record& record, size_t at, bool tagged, Tally& tally);

  const int link_type_;
  Reassembly reassembly_;
};

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_DISSECTOR_H_
