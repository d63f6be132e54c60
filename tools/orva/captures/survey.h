// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_SURVEY_H_
#define ORVA_TOOLS_CAPTURES_SURVEY_H_

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace orva {

/// Events on the capture's clock.
struct Timeline {
  uint64_t count = 0;
  int64_t first = 0;  ///< microseconds since the epoch
  int64_t last = 0;
  int64_t longest_gap = 0;     ///< microseconds between two events that follow each other
  int64_t longest_gap_at = 0;  ///< when it began
  uint64_t pauses = 0;         ///< gaps of more than kPause
  uint64_t steps_back = 0;     ///< events that are older than the one before

  static constexpr int64_t kPause = 100'000;  ///< as long as a frame at 10 Hz

  void Add(int64_t time);
  /// Per second, from the first to the last; 0 where there are not two moments.
  double Rate() const;
};

/// Frame ends as one model marks them.
struct FrameEnds {
  Timeline ends;
  uint64_t packets_since = 0;
  uint64_t whole_frame = 0;     ///< packets of a complete frame; 0: not known
  uint64_t incomplete = 0;      ///< frames that lack packets, the first and the last left out
  uint64_t merged = 0;          ///< frames of too many packets: an end between two of them is missing
  bool measures_on = false;     ///< measurements follow the last end
  uint64_t fewest_packets = 0;  ///< from one frame end to the next; 0 before there are two
  uint64_t most_packets = 0;

  /// `measures_on`: measurements follow the frame end in the packet.
  void Packet(int64_t time, bool ends_frame, bool measures_on);
  /// As replay counts them: a recording that ends with a frame end ends with that frame.
  uint64_t Frames() const { return ends.count + (measures_on ? 1 : 0); }
};

/// What a payload looks like, however it was sent.
struct StreamKind {
  uint16_t port = 0;
  size_t length = 0;
  bool sensor_identifier = false;

  auto operator<=>(const StreamKind&) const = default;
};

/// Datagrams of one kind. Frame ends are counted where length and identifier are a sensor's.
struct Stream {
  Timeline packets;
  std::array<uint8_t, 8> first_bytes{};  ///< of the first packet, zeros where it is shorter
  FrameEnds primary;                     ///< by the rule of TS4B, TS6 or NV2, whichever the length fits
  FrameEnds as_ts4a;
  uint64_t looks_like_primary = 0;  ///< packets whose content has that model's shape
  uint64_t looks_like_ts4a = 0;
  uint8_t previous_line = 0;  ///< of an NV2
};

/// Who sent datagrams, and to which port. All zeros stands for IPv6, and for senders that a recording hides.
struct Sender {
  uint16_t port = 0;
  std::array<uint8_t, 4> address{};

  auto operator<=>(const Sender&) const = default;
};

/// Why the driver takes no packet from a record.
enum class Skip { kCut, kVlan, kIpv6, kFragment, kOtherProtocol, kNoIp, kMalformed, kEmpty, kTooLong };
inline constexpr size_t kSkips = 9;

struct Survey {
  std::string path;
  int link_type = 0;
  std::string link_name;
  bool supported = false;  ///< does the driver read this link type?
  bool is_pcapng = false;
  Timeline records;
  std::map<StreamKind, Stream> streams;
  std::map<Sender, uint64_t> senders;  ///< packets of a sensor's length and identifier
  uint64_t unlisted = 0;               ///< datagrams of still more kinds than are kept
  std::array<uint64_t, kSkips> skipped{};
  std::string damage;  ///< why reading ended before the end of the file, or empty
};

/// Does a model send packets of this length?
bool IsModelLength(size_t length);

/// Called now and then with the share of the file that has been read, 0 to 1; false ends the reading.
using SurveyProgress = std::function<bool(double share)>;

/// Reads a whole capture, in memory that does not grow with it. Throws Failure where it is none, and where
/// `progress` ends it.
Survey SurveyCapture(const std::string& path, const SurveyProgress& progress);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_SURVEY_H_
