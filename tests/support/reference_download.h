// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <string>

#include "orva_driver.h"
#include "param/check_param.h"

namespace orva::test {

/// How the replies of a calibration download become a record, in the plainest code. It shares nothing with
/// the driver but the record.
struct ReferenceDownload {
  explicit ReferenceDownload(LidarType type) : model(type) {}

  /// How many bytes to ask for next; 0: complete; -1: refused.
  int Push(const std::string& reply) {
    if (reply.compare(0, 4, "ZZZZ") != 0) return -1;
    if (total == 0) total = static_cast<int32_t>(Word(reply) - 32);
    const int32_t payload = static_cast<int32_t>(reply.size()) - 39;
    received = static_cast<int32_t>(static_cast<uint32_t>(received) + static_cast<uint32_t>(payload));
    if (payload > 0) stored += reply.substr(36, static_cast<size_t>(payload));
    stored.resize(std::min(stored.size(), static_cast<size_t>(std::max(total, 0)) + 2009));
    if (total > received) {
      const auto left = static_cast<int32_t>(static_cast<uint32_t>(total) - static_cast<uint32_t>(received));
      last_chunk = left <= payload;
      return std::min(left, payload);
    }
    Fill();
    complete = true;
    return 0;
  }

  const LidarType model;
  bool last_chunk = false, complete = false;
  size_t filled = 0;  ///< sections
  std::unique_ptr<tevoro::lidar::CheckParam> record = std::make_unique<tevoro::lidar::CheckParam>();

 private:
  /// The length, little-endian; what the reply lacks is zeros.
  static uint32_t Word(const std::string& reply) {
    uint32_t word = 0;
    for (size_t i = 0; i < 4 && 4 + i < reply.size(); ++i) {
      word |= uint32_t{static_cast<uint8_t>(reply[4 + i])} << (8 * i);
    }
    return word;
  }

  void Fill() {
    if (model != TS4A && model != TS4B && model != TS6) return;
    std::map<size_t, char> places;  // of the first marker of each kind
    for (const char letter : std::string("ABCD")) {
      const std::string marker(4, letter);
      for (size_t at = 0; at + 4 <= stored.size() && static_cast<int64_t>(at) < received; at += 4) {
        if (stored.compare(at, 4, marker) != 0) continue;
        places[at] = letter;
        break;
      }
    }
    for (auto place = places.begin(); place != places.end(); ++place) {
      const size_t begin = place->first + 4;
      const auto next = std::next(place);
      const size_t end = next != places.end() ? next->first : static_cast<size_t>(std::max(total, 0));
      const std::string section = end > begin ? stored.substr(begin, end - begin) : "";
      const auto take = [&](void* field, size_t size) {
        if (section.size() < size) return;
        std::memcpy(field, section.data(), size);
        ++filled;
      };
      if (place->second == 'A') take(&record->elevation, sizeof(record->elevation));
      if (place->second == 'B') take(&record->azimuth, sizeof(record->azimuth));
      if (place->second == 'C') take(&record->weight, sizeof(record->weight));
      if (place->second == 'D') take(&record->near_filter, sizeof(record->near_filter));
    }
  }

  int32_t total = 0;  ///< announced; 0: not known
  int32_t received = 0;
  std::string stored;
};

}  // namespace orva::test
