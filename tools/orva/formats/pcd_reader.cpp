// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "formats/pcd_reader.h"
#include "shared/failure.h"

namespace orva {
namespace {

struct Field {
  std::size_t offset;  ///< in the point's record
  std::size_t size;
  char type;  ///< F, U or I, as in the file
};

struct Header {
  std::map<std::string, Field> fields;
  std::size_t record_size = 0;
  std::size_t points = 0;
  bool uncalibrated = false;
};

constexpr std::size_t kMostBytes = 8;  ///< of a number
constexpr std::size_t kMostCount = 10'000;

[[noreturn]] void Refuse(const std::filesystem::path& path, const std::string& why) {
  throw Failure("cannot read " + path.string() + ": " + why +
                ". Give a PCD file that 'orva replay' or 'orva live' wrote.");
}

std::vector<std::string> Words(std::istringstream& line) {
  std::vector<std::string> words;
  for (std::string word; line >> word;) {
    words.push_back(word);
  }
  return words;
}

Header ReadHeader(std::istream& file, const std::filesystem::path& path) {
  Header header;
  std::map<std::string, std::vector<std::string>> entries;
  for (std::string text; std::getline(file, text);) {
    std::istringstream line(text);
    std::string key;
    line >> key;
    entries[key] = Words(line);
    header.uncalibrated = header.uncalibrated || text == "# uncalibrated";
    if (key == "DATA") {
      break;
    }
  }
  const auto& names = entries["FIELDS"];
  const auto& sizes = entries["SIZE"];
  const auto& types = entries["TYPE"];
  const auto& counts = entries["COUNT"];
  if (entries["DATA"] != std::vector<std::string>{"binary"} || entries["POINTS"].size() != 1 ||
      sizes.size() != names.size() || types.size() != names.size() || counts.size() != names.size()) {
    Refuse(path, "it is no uncompressed binary PCD file");
  }
  try {
    header.points = std::stoul(entries["POINTS"][0]);
    for (std::size_t i = 0; i < names.size(); ++i) {
      const Field field = {header.record_size, std::stoul(sizes[i]), types[i][0]};
      const std::size_t count = std::stoul(counts[i]);
      if (field.size > kMostBytes || count < 1 || count > kMostCount) {
        Refuse(path, "its field '" + names[i] + "' has an impossible size");
      }
      header.fields[names[i]] = field;
      header.record_size += field.size * count;
    }
  } catch (const std::logic_error&) {
    Refuse(path, "its header holds no numbers where numbers belong");
  }
  return header;
}

template <typename Number>
Number Take(const char* record, const Header& header, const std::string& name, char type) {
  Number number = {};
  const auto field = header.fields.find(name);
  if (field != header.fields.end() && field->second.size == sizeof(Number) && field->second.type == type) {
    std::memcpy(&number, record + field->second.offset, sizeof(Number));
  }
  return number;
}

}  // namespace

PcdFile ReadPcd(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    Refuse(path, "there is no such file, or no permission");
  }
  const Header header = ReadHeader(file, path);
  for (const char* name : {"x", "y", "z", "intensity"}) {
    const auto field = header.fields.find(name);
    if (field == header.fields.end() || field->second.size != 4 || field->second.type != 'F') {
      Refuse(path, std::string("it has no field '") + name + "' of 32-bit floats");
    }
  }
  Cloud cloud;
  std::vector<char> record(header.record_size);
  for (std::size_t i = 0; i < header.points; ++i) {
    if (!file.read(record.data(), static_cast<std::streamsize>(record.size()))) {
      Refuse(path, "it ends before its " + std::to_string(header.points) + " points do");
    }
    PointTime point;
    point.x = Take<float>(record.data(), header, "x", 'F');
    point.y = Take<float>(record.data(), header, "y", 'F');
    point.z = Take<float>(record.data(), header, "z", 'F');
    if (!std::isfinite(point.x) || !std::isfinite(point.y) || !std::isfinite(point.z)) {
      point.x = point.y = point.z = 0.0F;  // without a return
    }
    const auto intensity = Take<float>(record.data(), header, "intensity", 'F');
    point.intensity =
        intensity >= 0.0F && intensity <= 65535.0F ? static_cast<std::uint16_t>(intensity) : std::uint16_t{0};
    point.label = static_cast<std::uint16_t>(Take<std::uint32_t>(record.data(), header, "label", 'U'));
    point.timestamp = Take<double>(record.data(), header, "timestamp", 'F');
    cloud.points.push_back(point);
  }
  return {std::move(cloud), header.uncalibrated};
}

}  // namespace orva
