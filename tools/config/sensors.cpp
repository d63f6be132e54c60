// SPDX-License-Identifier: Apache-2.0
#include "config/sensors.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include <toml++/toml.h>

namespace orva::config {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLargestFile = 1 << 20;  ///< bytes; nobody writes so many sensors by hand
constexpr std::size_t kMostSensors = 64;

/// A value of a section, with what is needed to read it or to complain.
struct Value {
  const fs::path& file;
  std::string_view key;
  const toml::node& node;

  [[noreturn]] void Refuse(const std::string& expected) const {
    throw Error(file.string() + ":" + std::to_string(node.source().begin.line) + ": '" + std::string(key) +
                "' must be " + expected + ".");
  }
  std::string Text() const {
    const auto text = node.value_exact<std::string>();
    // A zero inside would cut a path or an address short.
    if (!text || text->find('\0') != std::string::npos) Refuse("a text in quotation marks");
    return *text;
  }
  std::string Path() const {
    const std::string text = Text();
    if (text.empty()) Refuse("a path");
    return file.parent_path() / text;
  }
  std::string Address() const {
    std::string text = Text();
    in_addr ignored{};
    if (inet_pton(AF_INET, text.c_str(), &ignored) != 1) Refuse("an IPv4 address, as in \"192.168.1.200\"");
    return text;
  }
  uint16_t Port(int64_t least) const {
    const auto number = node.value_exact<int64_t>();
    if (!number || *number < least || *number > 65535) {
      Refuse("a port, " + std::to_string(least) + " to 65535");
    }
    return static_cast<uint16_t>(*number);
  }
  bool Flag() const {
    const auto flag = node.value_exact<bool>();
    if (!flag) Refuse("true or false");
    return *flag;
  }
  template <std::size_t N>
  std::array<float, N> Numbers(const char* expected) const {
    std::array<float, N> numbers{};
    const toml::array* array = node.as_array();
    if (array == nullptr || array->size() != N) Refuse(expected);
    for (std::size_t i = 0; i < N; ++i) {
      const auto number = (*array)[i].value<double>();
      numbers[i] = number ? static_cast<float>(*number) : NAN;
      if (!std::isfinite(numbers[i])) Refuse(expected);
    }
    return numbers;
  }
  void Range(float& low, float& high) const {
    constexpr const char* kExpected = "two numbers, the lower one first, as in [0.5, 80]";
    const auto bounds = Numbers<2>(kExpected);
    if (bounds[0] > bounds[1]) Refuse(kExpected);
    low = bounds[0];
    high = bounds[1];
  }
};

LidarType Model(const Value& value) {
  constexpr struct {
    std::string_view name;
    LidarType type;
  } kModels[] = {{"TS4B", TS4B}, {"TS6", TS6}, {"NV2", NV2}, {"TS4A", TS4A}, {"KR7", KR7}, {"TS4", TS4}};
  std::string text = value.Text();
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  for (const auto& model : kModels) {
    if (text == model.name) return model.type;
  }
  value.Refuse("one of TS4B, TS6, NV2, TS4A, KR7 and TS4");
}

void Mount(const Value& value, DecoderParam& decoder) {
  const auto pose = value.Numbers<6>("six numbers: x, y, z in metres, then roll, pitch, yaw in degrees");
  decoder.use_transform = true;
  float* const fields[] = {&decoder.x_offset, &decoder.y_offset, &decoder.z_offset,
                           &decoder.roll,     &decoder.pitch,    &decoder.yaw};
  for (std::size_t i = 0; i < pose.size(); ++i) *fields[i] = pose[i];
}

struct Key {
  std::string_view name;
  void (*read)(const Value& value, Sensor& sensor);
};
constexpr Key kKeys[] = {
    {"model", [](const Value& v, Sensor& s) { s.param.lidar_type = Model(v); }},
    {"port", [](const Value& v, Sensor& s) { s.param.input_param.msop_port = v.Port(1); }},
    {"host", [](const Value& v, Sensor& s) { s.param.input_param.host_ip = v.Address(); }},
    {"calib", [](const Value& v, Sensor& s) { s.param.calibration_param.calib_folder = v.Path(); }},
    {"sensor",
     [](const Value& v, Sensor& s) {
       s.param.calib_from_lidar = true;
       s.param.calibration_param.lidar_ip = v.Address();
     }},
    {"command_port", [](const Value& v, Sensor& s) { s.param.calibration_param.lidar_port = v.Port(1); }},
    {"command_host", [](const Value& v, Sensor& s) { s.param.calibration_param.local_ip = v.Address(); }},
    {"command_local_port",
     [](const Value& v, Sensor& s) { s.param.calibration_param.local_port = v.Port(0); }},
    {"uncalibrated", [](const Value& v, Sensor& s) { s.uncalibrated = v.Flag(); }},
    {"distance",
     [](const Value& v, Sensor& s) {
       v.Range(s.param.decoder_param.min_distance, s.param.decoder_param.max_distance);
     }},
    {"azimuth",
     [](const Value& v, Sensor& s) {
       v.Range(s.param.decoder_param.min_azimuth, s.param.decoder_param.max_azimuth);
     }},
    {"elevation",
     [](const Value& v, Sensor& s) {
       v.Range(s.param.decoder_param.min_elevation, s.param.decoder_param.max_elevation);
     }},
    {"mount", [](const Value& v, Sensor& s) { Mount(v, s.param.decoder_param); }},
    {"out", [](const Value& v, Sensor& s) { s.out = v.Path(); }},
    {"format", [](const Value& v, Sensor& s) { s.formats = v.Text(); }},
    {"imu", [](const Value& v, Sensor& s) { s.imu = v.Path(); }},
    {"frame_id", [](const Value& v, Sensor& s) { s.frame_id = v.Text(); }},
};

std::string AllKeys() {
  std::string names;
  for (const Key& key : kKeys) names += (names.empty() ? "" : ", ") + std::string(key.name);
  return names;
}

/// A socket of a sensor. Two on one port of one address can both be bound, and one then gets what was sent to
/// the other.
struct End {
  std::string_view key;  ///< of its port
  std::string host;
  uint16_t port;  ///< 0: of the system's choice

  bool Meets(const End& other) const {
    const auto is_any = [](const std::string& address) { return address.empty() || address == "0.0.0.0"; };
    return port != 0 && port == other.port && (is_any(host) || is_any(other.host) || host == other.host);
  }
};

std::vector<End> EndsOf(const DriverParam& param) {
  const InputParam& data = param.input_param;
  const CalibrationParam& command = param.calibration_param;
  std::vector<End> ends = {{"port", data.host_ip, data.msop_port}};
  if (param.calib_from_lidar) {
    ends.push_back({"command_local_port", command.local_ip, static_cast<uint16_t>(command.local_port)});
  }
  return ends;
}

void RefuseMeetingEnds(const fs::path& file, const Sensor& sensor, const Sensor& other) {
  for (const End& a : EndsOf(other.param)) {
    for (const End& b : EndsOf(sensor.param)) {
      if (!a.Meets(b)) continue;
      const bool both_data = a.key == "port" && b.key == "port";
      const std::string keys =
          "'" + std::string(a.key) + (a.key == b.key ? "" : "' and '" + std::string(b.key));
      throw Error(file.string() + ": the sensors '" + other.name + "' and '" + sensor.name +
                  "' listen on one port" + (both_data ? "" : ", " + keys + "'") +
                  ". Give each a port, or a local address ('host'" + (both_data ? "" : ", 'command_host'") +
                  ") of its own.");
    }
  }
}

Sensor ReadSensor(const fs::path& file, std::string_view name, const toml::table& section) {
  const auto refuse = [&](const toml::node& at, const std::string& what) {
    throw Error(file.string() + ":" + std::to_string(at.source().begin.line) + ": sensor '" +
                std::string(name) + "' " + what + ".");
  };
  Sensor sensor;
  sensor.name = name;
  DecoderParam& decoder = sensor.param.decoder_param;
  decoder.max_distance = 1000.0F;
  decoder.min_azimuth = -180.0F;
  decoder.max_azimuth = 180.0F;
  decoder.min_elevation = -90.0F;
  decoder.max_elevation = 90.0F;
  sensor.param.input_type = ONLINE;
  for (auto&& [key, node] : section) {
    const auto known = std::find_if(std::begin(kKeys), std::end(kKeys),
                                    [name = key.str()](const Key& k) { return k.name == name; });
    if (known == std::end(kKeys)) {
      refuse(node, "has an unknown key '" + std::string(key.str()) + "'. Known are " + AllKeys());
    }
    known->read({file, key.str(), node}, sensor);
  }
  if (!section.contains("model")) refuse(section, "has no 'model'");
  if (!section.contains("port")) refuse(section, "has no 'port'");
  if (section.contains("sensor") != section.contains("command_port")) {
    refuse(section, "needs 'sensor' and 'command_port' together");
  }
  if (section.contains("sensor") && section.contains("calib")) {
    refuse(section, "gets its calibration from 'calib' or from 'sensor', not from both");
  }
  if (SharesItsPort(sensor.param)) refuse(section, "needs a 'command_local_port' other than its 'port'");
  return sensor;
}

toml::table Parse(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text;
  char piece[4096];
  while (text.size() <= kLargestFile && (file.read(piece, sizeof(piece)), file.gcount() > 0)) {
    text.append(piece, static_cast<std::size_t>(file.gcount()));
  }
  if (!file.eof() || file.bad() || text.size() > kLargestFile) {
    throw Error(path.string() + (text.size() > kLargestFile
                                     ? " is too long for a configuration file."
                                     : " cannot be read. Check the path and its permissions."));
  }
  try {
    return toml::parse(text, path.string());
  } catch (const toml::parse_error& error) {
    throw Error(path.string() + ":" + std::to_string(error.source().begin.line) + ": " +
                std::string(error.description()) + ".");
  }
}

}  // namespace

bool SharesItsPort(const DriverParam& param) {
  const std::vector<End> ends = EndsOf(param);
  return ends.size() > 1 && ends[0].Meets(ends[1]);
}

std::vector<Sensor> ReadSensors(const fs::path& path) {
  const toml::table file = Parse(path);
  for (auto&& [key, node] : file) {
    if (key.str() != "sensor" || !node.is_table()) {
      throw Error(path.string() + ":" + std::to_string(node.source().begin.line) + ": '" +
                  std::string(key.str()) + "' is unknown. A section is called [sensor.NAME].");
    }
  }
  std::vector<Sensor> sensors;
  const toml::table* sections = file["sensor"].as_table();
  if (sections == nullptr || sections->empty()) {
    throw Error(path.string() + " holds no sensor. Write a section for each, as in [sensor.front].");
  }
  for (auto&& [name, node] : *sections) {
    const toml::table* section = node.as_table();
    if (section == nullptr) {
      throw Error(path.string() + ":" + std::to_string(node.source().begin.line) + ": sensor '" +
                  std::string(name.str()) + "' is no section. Write [sensor." + std::string(name.str()) +
                  "].");
    }
    Sensor sensor = ReadSensor(path, name.str(), *section);
    for (const Sensor& other : sensors) {
      RefuseMeetingEnds(path, sensor, other);
      const bool one_folder = !sensor.out.empty() && sensor.out == other.out;
      if (one_folder || (!sensor.imu.empty() && sensor.imu == other.imu)) {
        throw Error(path.string() + ": the sensors '" + other.name + "' and '" + sensor.name +
                    "' would write over each other. Give each an " + (one_folder ? "'out'" : "'imu'") +
                    " of its own.");
      }
    }
    sensors.push_back(std::move(sensor));
  }
  if (sensors.size() > kMostSensors) {
    throw Error(path.string() + " holds more than " + std::to_string(kMostSensors) + " sensors.");
  }
  return sensors;
}

}  // namespace orva::config
