// SPDX-License-Identifier: Apache-2.0
#include "param/calibration_stream.h"

#include <algorithm>
#include <cstring>

#include "common/console.h"
#include "param/calibration_wire.h"

namespace tevoro::lidar {
namespace {

namespace reply = calibration_reply;

constexpr int32_t kLargestPayload = reply::kMostBytes - reply::kOverhead;
constexpr int64_t kMostStoredBytes = int64_t{16} << 20;  // forty times a complete calibration
constexpr size_t kMarkerBytes = 4;

/// Little-endian word at `offset`; bytes beyond the reply read as zeros.
uint32_t Word(const signed char* data, int len, int offset) {
  uint32_t word = 0;
  for (int i = 0; i < 4 && offset + i < len; ++i) {
    word |= uint32_t{static_cast<uint8_t>(data[offset + i])} << (8 * i);
  }
  return word;
}

/// The sensor's figures are free to overflow the counters: they wrap.
int32_t WrappingAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

int32_t WrappingSubtract(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

}  // namespace

int CalibrationStream::PushData(const LidarType& type, const signed char* data, int len, CheckParam* record,
                                bool& last_chunk, bool& complete) {
  if (len < 4 || Word(data, len, reply::kMagic) != CALIB_REPLY_MAGIC) {
    PrintLine("data is erorr!");
    return -1;
  }
  const int32_t total =
      stream_total_ != 0 ? stream_total_
                         : static_cast<int32_t>(Word(data, len, reply::kStreamLength) - reply::kLengthExcess);

  // A reply that is shorter than its frame lowers the count.
  const int32_t payload = len - reply::kOverhead;
  if (payload > 0) Append(data + reply::kPayload, payload, total);
  // Counted once it is stored: a reply for which memory runs out has not been, and is asked for again.
  stream_total_ = total;
  stream_received_ = WrappingAdd(stream_received_, payload);

  if (stream_total_ > stream_received_) {
    const int32_t remaining = WrappingSubtract(stream_total_, stream_received_);
    last_chunk = remaining <= payload;
    return std::min(remaining, payload);
  }

  std::vector<IndexParam> index = FindMarkers(type);
  if (!index.empty()) {
    Sort(index);
    filled_sections_ = FillCheckParam(type, CutSections(index), record);
  }
  complete = true;
  return 0;
}

void CalibrationStream::Restart() {
  stream_total_ = 0;
  stream_received_ = 0;
  stream_bytes_.clear();
}

size_t CalibrationStream::SectionsOf(const LidarType& type) {
  return type == TS4A || type == TS4B || type == TS6 ? GetFlags(type).size() : 0;
}

void CalibrationStream::Append(const signed char* payload, int32_t bytes, int32_t total) {
  const int64_t limit = std::min(std::max(int64_t{total}, int64_t{0}) + kLargestPayload, kMostStoredBytes);
  const int64_t room = std::max(limit - static_cast<int64_t>(stream_bytes_.size()), int64_t{0});
  stream_bytes_.insert(stream_bytes_.end(), payload, payload + std::min(int64_t{bytes}, room));
}

std::span<const char* const> CalibrationStream::GetFlags(const LidarType& type) {
  static constexpr const char* kMarkers[] = {"AAAA", "BBBB", "CCCC", "DDDD", "EEEE"};
  const std::span<const char* const> markers(kMarkers);
  switch (type) {
    case KR7:
      return markers.first(1);
    case NV2:
      return markers;
    case TS4:
    case TS4A:
    case TS4B:
    case TS6:
      return markers.first(4);
  }
  return {};
}

void CalibrationStream::Sort(std::vector<IndexParam>& index) {
  std::sort(index.begin(), index.end(), [](const IndexParam& a, const IndexParam& b) {
    return static_cast<int32_t>(a.position) < static_cast<int32_t>(b.position);
  });
}

/// The first place of each marker. The sections' content is searched too: a calibration value that happens to
/// look like a marker is one.
std::vector<CalibrationStream::IndexParam> CalibrationStream::FindMarkers(const LidarType& type) const {
  const size_t searched = std::min(stream_bytes_.size(), static_cast<size_t>(std::max(stream_received_, 0)));
  std::vector<IndexParam> index;
  for (const char* marker : GetFlags(type)) {
    for (size_t position = 0; position < searched && position + kMarkerBytes <= stream_bytes_.size();
         position += 4) {
      if (std::memcmp(stream_bytes_.data() + position, marker, kMarkerBytes) != 0) continue;
      index.push_back({static_cast<uint32_t>(position), marker});
      break;
    }
  }
  return index;
}

CalibrationStream::Sections CalibrationStream::CutSections(const std::vector<IndexParam>& index) const {
  const std::span<const signed char> stored(stream_bytes_);
  const size_t announced = static_cast<size_t>(std::max(stream_total_, 0));
  Sections sections;
  for (size_t i = 0; i < index.size(); ++i) {
    const size_t begin = index[i].position + kMarkerBytes;
    const size_t next = i + 1 < index.size() ? index[i + 1].position : announced;
    const size_t end = std::max(std::min(next, stored.size()), begin);
    sections[index[i].marker].bytes = stored.subspan(begin, end - begin);
  }
  return sections;
}

size_t CalibrationStream::FillCheckParam(const LidarType& type, const Sections& sections,
                                         CheckParam* record) {
  if (SectionsOf(type) == 0 || record == nullptr) return 0;
  size_t filled = 0;
  if (type == TS6) PrintLine("check_buffers size:" + std::to_string(sections.size()));
  for (const char* marker : GetFlags(type)) {
    const auto section = sections.find(marker);
    if (section == sections.end()) continue;
    if (type == TS6) PrintLine(std::string("find ") + marker);
    const auto copy = [&filled, bytes = section->second.bytes](void* field, size_t size) {
      if (bytes.size() < size) return;
      std::memcpy(field, bytes.data(), size);
      ++filled;
    };
    switch (marker[0]) {
      case 'A':  // yes: A is elevation, B azimuth
        copy(&record->elevation, sizeof(record->elevation));
        break;
      case 'B':
        copy(&record->azimuth, sizeof(record->azimuth));
        break;
      case 'C':
        copy(&record->weight, sizeof(record->weight));
        break;
      case 'D':
        copy(&record->near_filter, sizeof(record->near_filter));
        break;
    }
  }
  return filled;
}

}  // namespace tevoro::lidar
