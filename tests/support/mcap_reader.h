// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lz4frame.h>
#include <zstd.h>

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace orva::test {

/// The messages of an MCAP file up to where it is cut off. Throws runtime_error where a checksum, an index or
/// a count contradicts what it is about.
class McapReader {
 public:
  struct Message {
    uint16_t channel = 0;
    uint32_t sequence = 0;
    uint64_t log_time = 0;
    std::vector<uint8_t> data;
    bool operator==(const Message&) const = default;
  };
  std::vector<Message> messages;
  std::map<std::string, std::vector<uint8_t>> attachments;
  size_t metadata = 0;
  size_t chunks = 0;
  bool complete = false;

  explicit McapReader(std::span<const uint8_t> file) : file_(file) {
    size_t at = kMagic;
    while (at + 9 <= file.size() && Number(file, at + 1, 8) <= file.size() - at - 9 && !complete) {
      const size_t length = Number(file, at + 1, 8);
      Take(file[at], at, file.subspan(at + 9, length));
      at += 9 + length;
    }
    Check(!complete || at + kMagic >= file.size(), "bytes behind the footer");
    complete = complete && at + kMagic == file.size();
  }

 private:
  using Bytes = std::span<const uint8_t>;
  static constexpr size_t kMagic = 8;

  static void Check(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(what);
  }
  static uint64_t Number(Bytes bytes, size_t at, size_t size) {
    Check(at + size <= bytes.size(), "a field beyond its record");
    uint64_t number = 0;
    for (size_t i = size; i-- > 0;) number = number << 8 | bytes[at + i];
    return number;
  }
  static uint32_t Crc(Bytes bytes) {
    static const auto table = [] {
      std::array<uint32_t, 256> remainders{};
      for (uint32_t i = 0; i < remainders.size(); ++i) {
        remainders[i] = i;
        for (int bit = 0; bit < 8; ++bit)
          remainders[i] = (remainders[i] >> 1) ^ (0xEDB88320 & -(remainders[i] & 1));
      }
      return remainders;
    }();
    uint32_t crc = ~0U;
    for (const uint8_t byte : bytes) crc = (crc >> 8) ^ table[(crc ^ byte) & 0xFF];
    return ~crc;
  }

  void Take(uint8_t opcode, size_t at, Bytes record) {
    switch (opcode) {
      case 0x06:
        return TakeChunk(at, record);
      case 0x07:
        return CheckIndex(record);
      case 0x08:
        return Check(chunk_ends_[Number(record, 16, 8)] == Number(record, 16, 8) + Number(record, 24, 8),
                     "a chunk index without its chunk");
      case 0x09: {
        const size_t name_size = Number(record, 16, 4);
        const size_t type_size = Number(record, 20 + name_size, 4);
        const Bytes data =
            record.subspan(32 + name_size + type_size, record.size() - 36 - name_size - type_size);
        attachments[Text(record.subspan(20, name_size))] = {data.begin(), data.end()};
        return Check(Number(record, record.size() - 4, 4) == Crc(record.first(record.size() - 4)),
                     "an attachment's checksum");
      }
      case 0x0B:
        Check(Number(record, 0, 8) == messages.size() && Number(record, 22, 4) == chunks, "the statistics");
        return Check(Number(record, 14, 4) == attachments.size(), "the number of attachments");
      case 0x0C:
        ++metadata;
        return;
      case 0x0F:
        return Check(Number(record, 0, 4) == Crc(file_.first(at)), "the checksum of the data");
      case 0x02: {
        const size_t start = Number(record, 0, 8);
        Check(Number(record, 16, 4) == Crc(file_.subspan(start, at + 25 - start)), "the summary's checksum");
        complete = true;
        return;
      }
      default:
        return;
    }
  }

  static std::string Text(Bytes bytes) { return {bytes.begin(), bytes.end()}; }

  void TakeChunk(size_t at, Bytes record) {
    const size_t name_size = Number(record, 28, 4);
    const std::string compression = Text(record.subspan(32, name_size));
    const Bytes stored = record.subspan(40 + name_size);
    Check(stored.size() == Number(record, 32 + name_size, 8), "a chunk's size");
    chunk_.resize(Number(record, 16, 8));
    size_t size = chunk_.size();
    size_t used = stored.size();
    if (compression == "zstd") {
      size = ZSTD_decompress(chunk_.data(), chunk_.size(), stored.data(), stored.size());
    } else if (compression == "lz4") {
      LZ4F_dctx* context = nullptr;
      LZ4F_createDecompressionContext(&context, LZ4F_VERSION);
      LZ4F_decompress(context, chunk_.data(), &size, stored.data(), &used, nullptr);
      LZ4F_freeDecompressionContext(context);
    } else {
      Check(compression.empty() && stored.size() == size, "an unknown compression");
      chunk_.assign(stored.begin(), stored.end());
    }
    Check(size == chunk_.size() && used == stored.size(), "a chunk that cannot be unpacked");
    Check(Crc(chunk_) == Number(record, 24, 4), "a chunk's checksum");
    chunk_ends_[at] = at + 9 + record.size();
    ++chunks;
    for (size_t place = 0; place < chunk_.size(); place += 9 + Number(chunk_, place + 1, 8)) {
      if (chunk_[place] != 0x05) continue;
      const Bytes message = Bytes(chunk_).subspan(place + 9, Number(chunk_, place + 1, 8));
      messages.push_back({static_cast<uint16_t>(Number(message, 0, 2)),
                          static_cast<uint32_t>(Number(message, 2, 4)),
                          Number(message, 6, 8),
                          {message.begin() + 22, message.end()}});
      Check(messages.back().log_time >= Number(record, 0, 8) &&
                messages.back().log_time <= Number(record, 8, 8),
            "a message outside its chunk's times");
    }
  }

  void CheckIndex(Bytes record) {
    Check(Number(record, 2, 4) == record.size() - 6, "an index's size");
    uint64_t before = 0;
    for (size_t at = 6; at < record.size(); at += 16) {
      const uint64_t time = Number(record, at, 8);
      const size_t place = Number(record, at + 8, 8);
      Check(time >= before, "an index that is not sorted");
      Check(Number(chunk_, place, 1) == 0x05 && Number(chunk_, place + 9, 2) == Number(record, 0, 2) &&
                Number(chunk_, place + 15, 8) == time,
            "an index that points elsewhere");
      before = time;
    }
  }

  Bytes file_;
  std::vector<uint8_t> chunk_;
  std::map<size_t, size_t> chunk_ends_;
};

}  // namespace orva::test
