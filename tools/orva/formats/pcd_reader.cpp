// SPDX-License-Identifier: Apache-2.0
#include "formats/pcd_reader.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <istream>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "shared/failure.h"

namespace orva {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestHeader = 65'536;  ///< bytes, the line DATA included
constexpr std::size_t kLargestPoint = 65'536;   ///< bytes, all fields
constexpr std::size_t kLargestNumber = 8;       ///< bytes
constexpr std::size_t kMostPoints = 1 << 24;    ///< a sparse file may be of any size
/// Metres. What is farther, or no number, has no return: the floats of a picture's scale still tell
/// decimetres there.
constexpr float kFarthest = 1e6F;

constexpr std::string_view kBlank = " \t\r\f\v";
using Words = std::vector<std::string_view>;

struct Field {
  std::string_view name;
  std::size_t offset;  ///< in the point's record
  std::size_t size;
  char type;  ///< F, U or I, as in the file
};

struct Header {
  std::size_t bytes = 0;
  std::vector<Field> fields;
  std::size_t record_size = 0;
  std::size_t points = 0;
  bool uncalibrated = false;
};

[[noreturn]] void Refuse(const std::string& name, const std::string& why) {
  throw Failure("cannot read " + name + ": " + why +
                ". Give a PCD file that 'orva replay' or 'orva live' wrote.");
}

Words Split(std::string_view line) {
  Words words;
  for (std::size_t at = line.find_first_not_of(kBlank); at < line.size();) {
    const std::size_t end = std::min(line.find_first_of(kBlank, at), line.size());
    words.push_back(line.substr(at, end - at));
    at = line.find_first_not_of(kBlank, end);
  }
  return words;
}

std::size_t ReadNumber(std::string_view word, const std::string& name) {
  std::size_t number = 0;
  const char* const end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, number);
  if (error != std::errc() || stop != end) {
    Refuse(name, "its header holds no numbers where numbers belong");
  }
  return number;
}

/// `text`: how the file begins. `more`: it goes on behind that.
Header ReadHeader(std::string_view text, bool more, const std::string& name) {
  Header header;
  Words names, sizes, types, counts, points, data;
  const std::pair<std::string_view, Words*> entries[] = {{"FIELDS", &names},  {"SIZE", &sizes},
                                                         {"TYPE", &types},    {"COUNT", &counts},
                                                         {"POINTS", &points}, {"DATA", &data}};
  while (header.bytes < text.size() && data.empty()) {
    const std::size_t end = text.find('\n', header.bytes);
    if (end == std::string_view::npos && more) {
      break;
    }
    const std::string_view line = text.substr(header.bytes, end - header.bytes);
    header.bytes = std::min(end, text.size() - 1) + 1;
    header.uncalibrated = header.uncalibrated || line == "# uncalibrated";
    for (const auto& [key, words] : entries) {
      if (line.starts_with(key) && line.substr(key.size()).find_first_of(kBlank) == 0) {
        *words = Split(line.substr(key.size()));
      }
    }
  }
  if (more && data.empty()) {
    Refuse(name, "its header has more than " + std::to_string(kLongestHeader) + " bytes");
  }
  if (data != Words{"binary"} || points.size() != 1 || sizes.size() != names.size() ||
      types.size() != names.size() || counts.size() != names.size()) {
    Refuse(name, "it is no uncompressed binary PCD file");
  }
  header.points = ReadNumber(points.front(), name);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const Field field = {names[i], header.record_size, ReadNumber(sizes[i], name), types[i].front()};
    const std::size_t count = ReadNumber(counts[i], name);
    if (field.size < 1 || field.size > kLargestNumber || count < 1 || count > kLargestPoint) {
      Refuse(name, "field " + std::to_string(i + 1) + " of its points has an impossible size");
    }
    header.fields.push_back(field);
    header.record_size += field.size * count;
    if (header.record_size > kLargestPoint) {
      Refuse(name, "its points have more than " + std::to_string(kLargestPoint) + " bytes each");
    }
  }
  return header;
}

/// Where a point's record holds the number, or nothing.
std::optional<std::size_t> Find(const Header& header, std::string_view field, std::size_t size, char type) {
  for (const Field& candidate : header.fields) {
    if (candidate.name == field && candidate.size == size && candidate.type == type) {
      return candidate.offset;
    }
  }
  return std::nullopt;
}

template <typename Number>
Number Take(const std::vector<char>& record, std::optional<std::size_t> offset) {
  Number number = {};
  if (offset) {
    std::memcpy(&number, record.data() + *offset, sizeof(Number));
  }
  return number;
}

}  // namespace

PcdFile ReadPcd(const fs::path& path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(path, ignored);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    Refuse(path.string(), "it is no regular file");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    Refuse(path.string(), "there is no such file, or no permission");
  }
  return ReadPcd(file, path.string());
}

PcdFile ReadPcd(std::istream& file, const std::string& name) {
  file.seekg(0, std::ios::end);
  const std::streamoff size = std::max<std::streamoff>(file.tellg(), 0);
  file.seekg(0);
  std::string start(std::min<std::size_t>(static_cast<std::size_t>(size), kLongestHeader), '\0');
  if (!file.read(start.data(), static_cast<std::streamsize>(start.size()))) {
    Refuse(name, "reading fails");
  }
  const Header header = ReadHeader(start, static_cast<std::size_t>(size) > start.size(), name);
  const auto x = Find(header, "x", sizeof(float), 'F');
  const auto y = Find(header, "y", sizeof(float), 'F');
  const auto z = Find(header, "z", sizeof(float), 'F');
  const auto intensity = Find(header, "intensity", sizeof(float), 'F');
  const auto label = Find(header, "label", sizeof(std::uint32_t), 'U');
  const auto timestamp = Find(header, "timestamp", sizeof(double), 'F');
  for (const auto& [field, offset] :
       {std::pair("x", x), std::pair("y", y), std::pair("z", z), std::pair("intensity", intensity)}) {
    if (!offset) {
      Refuse(name, std::string("it has no field '") + field + "' of 32-bit floats");
    }
  }
  const std::string ends = "it ends before its " + std::to_string(header.points) + " points do";
  if (header.points > (static_cast<std::size_t>(size) - header.bytes) / header.record_size) {
    Refuse(name, ends);
  }
  if (header.points > kMostPoints) {
    Refuse(name, "it holds more than " + std::to_string(kMostPoints) + " points");
  }
  PcdFile result;
  result.uncalibrated = header.uncalibrated;
  result.cloud.points.reserve(header.points);
  file.seekg(static_cast<std::streamoff>(header.bytes));
  std::vector<char> record(header.record_size);
  for (std::size_t i = 0; i < header.points; ++i) {
    if (!file.read(record.data(), static_cast<std::streamsize>(record.size()))) {
      Refuse(name, ends);
    }
    PointTime point;
    point.x = Take<float>(record, x);
    point.y = Take<float>(record, y);
    point.z = Take<float>(record, z);
    if (!(Distance(point) <= kFarthest)) {
      point.x = point.y = point.z = 0.0F;
    }
    const auto brightness = Take<float>(record, intensity);
    point.intensity = brightness >= 0.0F && brightness <= 65535.0F ? static_cast<std::uint16_t>(brightness)
                                                                   : std::uint16_t{0};
    point.label = static_cast<std::uint16_t>(Take<std::uint32_t>(record, label));
    point.timestamp = Take<double>(record, timestamp);
    result.cloud.points.push_back(point);
  }
  return result;
}

}  // namespace orva
