// SPDX-License-Identifier: Apache-2.0
//
// Records. All numbers are little-endian; texts, arrays and maps begin with their size in bytes.
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <map>
#include <string_view>
#include <type_traits>
#include <vector>

#include "mcap/sink.h"

namespace orva::mcap {

inline constexpr std::array<std::uint8_t, 8> kMagic = {0x89, 'M', 'C', 'A', 'P', '0', '\r', '\n'};

enum class Opcode : std::uint8_t {
  kHeader = 0x01,
  kFooter = 0x02,
  kSchema = 0x03,
  kChannel = 0x04,
  kMessage = 0x05,
  kChunk = 0x06,
  kMessageIndex = 0x07,
  kChunkIndex = 0x08,
  kAttachment = 0x09,
  kAttachmentIndex = 0x0A,
  kStatistics = 0x0B,
  kMetadata = 0x0C,
  kMetadataIndex = 0x0D,
  kSummaryOffset = 0x0E,
  kDataEnd = 0x0F,
};

class Record {
 public:
  /// Appends a record to `bytes`; its length is filled in at the end of this object's life.
  Record(std::vector<std::uint8_t>& bytes, Opcode opcode) : bytes_(bytes) {
    Put(static_cast<std::uint8_t>(opcode));
    content_ = bytes_.size() + 8;
    Put(std::uint64_t{0});
  }
  ~Record() { Patch(content_ - 8, static_cast<std::uint64_t>(bytes_.size() - content_ + beyond_)); }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  template <std::integral T>
  Record& Put(T number) {
    const std::size_t at = bytes_.size();
    bytes_.resize(at + sizeof(T));
    Patch(at, number);
    return *this;
  }
  Record& Put(std::string_view text) {
    Put(static_cast<std::uint32_t>(text.size()));
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  template <typename Key, typename Value>
  Record& Put(const std::map<Key, Value>& map) {
    const std::size_t at = bytes_.size();
    Put(std::uint32_t{0});
    for (const auto& [key, value] : map) {
      if constexpr (std::is_convertible_v<Key, std::string_view>) {
        Put(std::string_view(key)).Put(std::string_view(value));
      } else {
        Put(key).Put(value);
      }
    }
    Patch(at, static_cast<std::uint32_t>(bytes_.size() - at - 4));
    return *this;
  }
  Record& Append(Bytes data) {
    bytes_.insert(bytes_.end(), data.begin(), data.end());
    return *this;
  }
  /// The last `size` bytes of the record follow elsewhere.
  void ContinuesFor(std::size_t size) { beyond_ = size; }
  std::size_t content() const { return content_; }

 private:
  template <std::integral T>
  void Patch(std::size_t at, T number) {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
      bytes_[at + i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
  }

  std::vector<std::uint8_t>& bytes_;
  std::size_t content_ = 0;
  std::size_t beyond_ = 0;
};

}  // namespace orva::mcap
