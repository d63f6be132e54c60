// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_REASSEMBLY_H_
#define ORVA_TOOLS_CAPTURES_REASSEMBLY_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <span>
#include <vector>

namespace orva {

/// What the fragments of one IPv4 datagram share.
struct FragmentKey {
  std::array<uint8_t, 4> source{};
  std::array<uint8_t, 4> destination{};
  uint16_t identification = 0;

  bool operator==(const FragmentKey&) const = default;
};

struct Fragment {
  FragmentKey key;
  int64_t time_ns = 0;
  size_t offset = 0;                 ///< bytes in the datagram
  bool more = false;                 ///< others follow behind it
  std::span<const uint8_t> bytes{};  ///< behind the IP header
};

/// Puts fragments of IPv4 datagrams together, in any order. Its memory is bounded: the datagram that has
/// waited longest is given up for a new one, and one whose rest does not come within `patience_ns`, before
/// the sender's identifications come round. Every fragment is in the end one of a whole datagram, lost, or
/// repeated.
class Reassembly {
 public:
  struct Limits {
    size_t bytes = 4 << 20;
    size_t datagrams = 256;
    int64_t patience_ns = 2'000'000'000;
  };
  struct Whole {
    std::vector<uint8_t> bytes;
    uint64_t fragments = 0;
  };

  explicit Reassembly(const Limits& limits) : limits_(limits) {}

  /// The datagram that this fragment completes.
  std::optional<Whole> Add(const Fragment& fragment);
  /// Gives up what still waits.
  void GiveUp();

  uint64_t lost() const { return lost_; }          ///< fragments of datagrams that were given up
  uint64_t repeated() const { return repeated_; }  ///< fragments that were there already
  size_t bytes() const { return bytes_; }          ///< that wait

 private:
  struct Range {
    size_t begin;
    size_t end;
  };
  struct Waiting {
    FragmentKey key;
    int64_t since_ns;
    Whole whole{};
    std::vector<Range> ranges{};
    size_t present = 0;            ///< bytes
    std::optional<size_t> size{};  ///< known from the last fragment on
  };
  using Position = std::list<Waiting>::iterator;
  enum class Fit { kNew, kRepeated, kContradicts };

  static Fit Compare(const Waiting& waiting, const Fragment& fragment);
  void Append(Waiting& waiting, const Fragment& fragment);
  void Drop(Position position);

  const Limits limits_;
  std::list<Waiting> waiting_;  ///< oldest first
  size_t bytes_ = 0;
  uint64_t lost_ = 0;
  uint64_t repeated_ = 0;
};

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_REASSEMBLY_H_
