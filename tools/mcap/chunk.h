// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "mcap/compressor.h"

namespace orva::mcap {

struct TimeSpan {
  std::uint64_t first = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t last = 0;

  void Add(const TimeSpan& other) {
    first = std::min(first, other.first);
    last = std::max(last, other.last);
  }
  std::uint64_t start() const { return first > last ? 0 : first; }  ///< 0 without messages
};

/// Messages on their way to the sink.
struct Chunk {
  std::uint64_t number = 0;
  std::vector<std::uint8_t> records;
  std::vector<std::uint8_t> packed;
  const char* compression = "";
  std::uint32_t records_crc = 0;
  std::uint32_t stored_crc = 0;
  TimeSpan span;
  /// Of each channel: log time and place in `records` of each message.
  std::map<std::uint16_t, std::vector<std::pair<std::uint64_t, std::uint64_t>>> index;

  const std::vector<std::uint8_t>& stored() const { return *compression == '\0' ? records : packed; }
  void Clear() {
    records.clear();
    index.clear();
    span = {};
  }
};

/// Compresses the records where that makes them smaller, and sums up both forms.
void Seal(Chunk& chunk, Compressor* compressor);

}  // namespace orva::mcap
