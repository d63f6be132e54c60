// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <iterator>
#include <vector>

#include "captures/dissector.h"
#include "expect.h"
#include "targets.h"

namespace orva::fuzz {
namespace {

constexpr int kLinkTypes[] = {1, 113, 276, 12, 0};  // Ethernet, Linux cooked v1 and v2, raw IP, BSD loopback
constexpr Reassembly::Limits kTight = {.bytes = 4096, .datagrams = 4, .patience_ns = 1000};

void Dissect(int link_type, const uint8_t* data, size_t size) {
  Dissector dissector(link_type, kTight);
  Tally tally;
  uint64_t records = 0;
  int64_t time = 0;
  for (size_t at = 0; at + 4 <= size;) {
    const size_t length = std::min(size_t{data[at]} | size_t{data[at + 1]} << 8, size - at - 4);
    const size_t missing = data[at + 2] % 8;
    time += data[at + 3];
    // Of its own, so that a sanitizer sees a step beyond its end.
    const std::vector<uint8_t> bytes(data + at + 4, data + at + 4 + length);
    at += 4 + length;
    ++records;
    const auto datagram = dissector.Take({time, bytes, length + missing}, tally);
    if (!datagram) continue;
    ORVA_EXPECT(datagram->records > 0 && datagram->packet.payload.size() <= 65535);
    tally.Add(datagram->fate, datagram->records);
  }
  dissector.Finish(tally);
  uint64_t sum = 0;
  for (size_t fate = 0; fate < kFates; ++fate) sum += tally[static_cast<Fate>(fate)];
  ORVA_EXPECT(sum == records);
}

void Reassemble(const uint8_t* data, size_t size) {
  Reassembly reassembly(kTight);
  uint64_t fragments = 0;
  uint64_t joined = 0;
  int64_t time = 0;
  for (size_t at = 0; at + 5 <= size;) {
    const size_t length = std::min<size_t>(data[at + 3], size - at - 5);
    Fragment fragment{.key = {{}, {}, static_cast<uint16_t>(data[at] >> 4)}, .time_ns = time += data[at + 4]};
    fragment.more = (data[at] & 1) != 0;
    fragment.offset = static_cast<size_t>(data[at + 1] | data[at + 2] << 8);
    const std::vector<uint8_t> bytes(data + at + 5, data + at + 5 + length);
    fragment.bytes = bytes;
    at += 5 + length;
    ++fragments;
    if (const auto whole = reassembly.Add(fragment)) {
      joined += whole->fragments;
      // The last fragment that came stands in the whole as it came.
      ORVA_EXPECT(fragment.offset + length <= whole->bytes.size());
      ORVA_EXPECT(std::equal(bytes.begin(), bytes.end(),
                             whole->bytes.begin() + static_cast<std::ptrdiff_t>(fragment.offset)));
    }
    ORVA_EXPECT(reassembly.bytes() <= kTight.bytes);
  }
  reassembly.GiveUp();
  ORVA_EXPECT(reassembly.bytes() == 0);
  ORVA_EXPECT(joined + reassembly.lost() + reassembly.repeated() == fragments);
}

}  // namespace

void Fragments(const uint8_t* data, size_t size) {
  if (size == 0) return;
  if (data[0] < std::size(kLinkTypes)) {
    Dissect(kLinkTypes[data[0]], data + 1, size - 1);
  } else {
    Reassemble(data + 1, size - 1);
  }
}

}  // namespace orva::fuzz
