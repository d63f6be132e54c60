// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <map>
#include <stdexcept>
#include <utility>

#include "config/sensors.h"
#include "ros_arguments.h"
#include "sessions/calibration_files.h"
#include "sessions/driver_options.h"
#include "shared/driver_log.h"
#include "shared/models.h"
#include "shared/terminal.h"

namespace orva::ros2 {
namespace {

constexpr const char* kFooter =
    "Examples:\n"
    "  orva-ros2 --model TS4B --port 6699 --sensor 192.168.1.200 --command-port 6688\n"
    "  orva-ros2 --config vehicle.toml --ros-args -r __ns:=/front\n"
    "  orva-ros2 --replay street.pcap --model TS4B --calib calib --loop\n"
    "\n"
    "Behind --ros-args: -r __ns:=/NAME, -p OPTION:=VALUE, --params-file FILE.yaml.\n"
    "ROS_DOMAIN_ID and ROS_LOCALHOST_ONLY are honoured.\n";

/// What the command line says about all sensors, or about the only one.
struct CommandLine {
  DriverParam param = OpenParam(ONLINE);
  std::string config;
  std::string space;
  std::string frame_id = "lidar";
  std::string base_frame = "base_link";
  messages::PointLayout layout = messages::PointLayout::kPacked;
  messages::InvalidPoints invalid = messages::InvalidPoints::kNan;
  bool uncalibrated = false;
  bool best_effort = false;
};

/// "/front", without a slash at its end; "" for the root.
std::string CheckedNamespace(std::string space) {
  while (!space.empty() && space.back() == '/') space.pop_back();
  if (space.empty()) return space;
  if (space.front() != '/') space.insert(space.begin(), '/');
  char before = 0;
  for (const char c : space) {
    const bool letter = std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
    const bool digit = std::isdigit(static_cast<unsigned char>(c)) != 0;
    const bool starts = before == '/' || before == 0;
    if (!(letter || (digit && !starts) || (c == '/' && before != '/')))
      throw std::invalid_argument("'" + space +
                                  "' is no namespace: names of letters, digits and _, each behind a /, none "
                                  "of them beginning with a digit");
    before = c;
  }
  return space;
}

/// The name of a section as a part of a namespace.
std::string NamespaceOf(std::string name) {
  for (char& c : name) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  if (name.empty() || std::isdigit(static_cast<unsigned char>(name.front())) != 0)
    name.insert(name.begin(), '_');
  return "/" + name;
}

/// Two sensors in one namespace would mix their clouds, and a frame has one place alone.
void CheckApart(const std::vector<SensorSetup>& sensors) {
  for (const SensorSetup& one : sensors) {
    for (const SensorSetup& other : sensors) {
      if (&one == &other) continue;
      const std::string both = "the sensors '" + one.name + "' and '" + other.name + "' ";
      if (one.space == other.space)
        throw std::invalid_argument(both + "would share the namespace " + one.space);
      if (!one.mounting.parent.empty() && !other.mounting.parent.empty() &&
          one.mounting.frame == other.mounting.frame)
        throw std::invalid_argument(both + "have mountings, but one frame_id, '" + one.mounting.frame + "'");
    }
  }
}

/// Takes the mounting out of the driver's parameters: in ROS the points stay in the sensor's frame.
Mounting TakeMounting(DecoderParam& param, const std::string& parent, const std::string& frame) {
  if (!std::exchange(param.use_transform, false)) return {};
  return {parent, frame, param.x_offset, param.y_offset, param.z_offset, param.roll, param.pitch, param.yaw};
}

SensorSetup SetupOf(const CommandLine& line, DriverParam param, std::string name, const std::string& frame) {
  if (frame.empty() || line.base_frame.empty())
    throw std::invalid_argument("a frame has no name: see frame_id and --base-frame");
  SensorSetup setup;
  setup.name = std::move(name);
  setup.space = CheckedNamespace(line.space);
  setup.mounting = TakeMounting(param.decoder_param, line.base_frame, frame);
  setup.param = std::move(param);
  setup.uncalibrated = line.uncalibrated;
  setup.cloud.layout = line.layout;
  setup.cloud.invalid = line.invalid;
  setup.cloud.frame_id = frame;
  return setup;
}

void AddOptions(CLI::App& app, CommandLine& line, Options& options) {
  CalibrationParam& calibration = line.param.calibration_param;
  InputParam& input = line.param.input_param;
  CLI::Option* config = app.add_option("--config", line.config, "Several sensors: a file as of 'orva live'");
  config->type_name("FILE.toml");
  AddModelOption(app, line.param.lidar_type)->excludes(config);
  app.add_option("--port", input.msop_port, "The sensor's UDP data port; of a recording 0 takes all")
      ->type_name("N")
      ->excludes(config);
  app.add_option("--host", input.host_ip, "Local address to listen on; without it: all")
      ->check(CLI::ValidIPV4)
      ->type_name("IP")
      ->excludes(config);
  CLI::Option* calib = app.add_option("--calib", calibration.calib_folder, "Folder of calibration files");
  calib->type_name("FOLDER")->excludes(config);
  CLI::Option* sensor =
      app.add_option("--sensor", calibration.lidar_ip, "The sensor's address: take the calibration from it");
  sensor->check(CLI::ValidIPV4)->type_name("IP")->excludes(calib)->excludes(config);
  app.add_option("--command-port", calibration.lidar_port, "The sensor's command port")
      ->check(CLI::Range(1, 65535))
      ->type_name("N")
      ->needs(sensor);
  app.add_flag("--uncalibrated", line.uncalibrated,
               "Publish frames before the calibration is in use, or where it is of no use");
  CLI::Option* replay = app.add_option("--replay", input.pcap_path, "A recording instead of a sensor");
  replay->type_name("FILE")->excludes(config)->excludes(sensor);
  app.add_option("--rate", options.rate, "Times the recording's own pace")
      ->check(CLI::Range(0.01, 100.0))
      ->type_name("X")
      ->needs(replay);
  app.add_flag("--loop", options.loop, "Begin the recording anew at its end")->needs(replay);
  app.add_option("--readers", options.readers, "Begin when so many readers of the points are there")
      ->check(CLI::Range(0, 100))
      ->type_name("N")
      ->needs(replay);
  app.add_option("--duration", options.duration, "End after so many seconds")
      ->check(CLI::Range(0.001, 1e8))
      ->type_name("S");
  AddDecoderOptions(app, line.param.decoder_param);

  app.add_option("--namespace", line.space, "Namespace of the topics")->type_name("/NAME");
  app.add_option("--frame-id", line.frame_id, "Frame of the points")->capture_default_str()->excludes(config);
  app.add_option("--base-frame", line.base_frame, "Frame that the mounting is given in")
      ->capture_default_str();
  app.add_option("--layout", line.layout, "Bytes of a point: packed (22) or pcl (32)")
      ->transform(CLI::CheckedTransformer(std::map<std::string, messages::PointLayout>{
          {"packed", messages::PointLayout::kPacked}, {"pcl", messages::PointLayout::kPcl}}))
      ->type_name("packed|pcl");
  app.add_option("--invalid", line.invalid, "Points without a return: NaN, or dropped")
      ->transform(CLI::CheckedTransformer(std::map<std::string, messages::InvalidPoints>{
          {"nan", messages::InvalidPoints::kNan}, {"drop", messages::InvalidPoints::kDrop}}))
      ->type_name("nan|drop");
  AddDriverLogOption(app);
  AddVerbosityOptions(app);
  app.add_flag("--best-effort", line.best_effort, "Quality of service of sensor data; default: reliable");
}

}  // namespace

bool ReadOptions(int argc, const char* const* argv, Options& options) {
  CLI::App app("Publishes ORVA sensors, or a recording, as ROS 2 topics over DDS.", "orva-ros2");
  app.set_version_flag("--version", "orva-ros2 " ORVA_DRIVER_VERSION_STRING);
  app.footer(kFooter);
  CommandLine line;
  AddOptions(app, line, options);
  try {
    std::vector<std::string> words = OwnArguments({argv + 1, argv + argc});
    std::reverse(words.begin(), words.end());  // as the parser takes them
    app.parse(words);
  } catch (const CLI::Success& request) {
    app.exit(request);
    return false;
  } catch (const CLI::ParseError& error) {
    throw std::invalid_argument(std::string(error.what()) + "\nTry 'orva-ros2 --help'.");
  }
  options.delivery = line.best_effort ? Delivery::kBestEffort : Delivery::kReliable;

  if (!line.config.empty()) {
    for (config::Sensor& sensor : config::ReadSensors(line.config)) {
      SensorSetup setup = SetupOf(line, sensor.param, sensor.name, sensor.frame_id);
      setup.space += NamespaceOf(sensor.name);
      setup.uncalibrated = line.uncalibrated || sensor.uncalibrated;
      options.sensors.push_back(std::move(setup));
    }
    CheckApart(options.sensors);
    return true;
  }
  DriverParam& param = line.param;
  options.is_recording = !param.input_param.pcap_path.empty();
  if (TraitsOf(param.lidar_type).type != param.lidar_type)
    throw std::invalid_argument("which model? Say --model, or --config for several sensors.");
  if (options.is_recording) {
    param.input_type = PCAP;
    UseCalibrationBeside(param);
  } else if (param.input_param.msop_port == 0) {
    throw std::invalid_argument("at which port do its packets arrive? Say --port.");
  }
  param.calib_from_lidar = !param.calibration_param.lidar_ip.empty();
  const std::string name = std::string(TraitsOf(param.lidar_type).name) + " " +
                           (options.is_recording ? param.input_param.pcap_path
                                                 : "port " + std::to_string(param.input_param.msop_port));
  options.sensors.push_back(SetupOf(line, param, name, line.frame_id));
  return true;
}

}  // namespace orva::ros2
