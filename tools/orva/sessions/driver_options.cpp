// SPDX-License-Identifier: Apache-2.0
#include "sessions/driver_options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <string>
#include <vector>

#include "config/sensors.h"
#include "shared/driver_log.h"
#include "shared/failure.h"
#include "shared/models.h"
#include "shared/numbers.h"

namespace orva {
namespace {

constexpr const char* kLimits = "Limits and mounting (a point outside the limits becomes the origin)";

void AddRange(CLI::App& command, const std::string& name, const std::string& what, float least, float most,
              float& low, float& high) {
  command
      .add_option_function<std::vector<std::string>>(
          name,
          [=, &low, &high](const std::vector<std::string>& bounds) {
            low = ReadNumber(name, bounds[0], least, most);
            high = ReadNumber(name, bounds[1], least, most);
            if (low > high) {
              throw CLI::ValidationError(name, "no value lies between " + bounds[0] + " and " + bounds[1] +
                                                   "; write the smaller one first.");
            }
          },
          WithRange(what, least, most))
      ->expected(2)
      ->type_name("MIN MAX")
      ->group(kLimits);
}

constexpr float kFarthest = 100'000.0F;  ///< metres
constexpr float kWholeTurn = 360.0F;

}  // namespace

DriverParam OpenParam(InputType input_type) {
  DriverParam param;
  param.input_type = input_type;
  param.decoder_param.max_distance = 1000.0F;
  param.decoder_param.min_azimuth = -180.0F;
  param.decoder_param.max_azimuth = 180.0F;
  param.decoder_param.min_elevation = -90.0F;
  param.decoder_param.max_elevation = 90.0F;
  return param;
}

void AddDecoderOptions(CLI::App& command, DecoderParam& param) {
  AddRange(command, "--distance", "Metres (default: 0 1000)", 0.0F, kFarthest, param.min_distance,
           param.max_distance);
  AddRange(command, "--azimuth", "Degrees, left positive (default: -180 180)", -kWholeTurn, kWholeTurn,
           param.min_azimuth, param.max_azimuth);
  AddRange(command, "--elevation", "Degrees (default: -90 90)", -kWholeTurn, kWholeTurn, param.min_elevation,
           param.max_elevation);
  command
      .add_option_function<std::vector<std::string>>(
          "--mount",
          [&param](const std::vector<std::string>& words) {
            std::array<float, 6> pose;
            for (std::size_t i = 0; i < pose.size(); ++i) {
              const float most = i < 3 ? kFarthest : kWholeTurn;
              pose[i] = ReadNumber("--mount", words[i], -most, most);
            }
            param.use_transform = true;
            param.x_offset = pose[0];
            param.y_offset = pose[1];
            param.z_offset = pose[2];
            param.roll = pose[3];
            param.pitch = pose[4];
            param.yaw = pose[5];
          },
          "Where the sensor sits: metres (100000 at most), then degrees (360 at most)")
      ->expected(6)
      ->type_name("X Y Z ROLL PITCH YAW")
      ->group(kLimits);
}

void AddListenOptions(CLI::App& command, InputParam& param) {
  AddNumber(command, "--port", param.msop_port, 1, 65535, "The sensor's UDP data port")->required();
  command.add_option("--host", param.host_ip, "Local address to listen on; without it: all")
      ->check(CLI::ValidIPV4)
      ->type_name("IP");
  AddDriverLogOption(command);
}

void AddDurationOption(CLI::App& command, double& seconds) {
  AddNumber(command, "--duration", seconds, 0.001, 1e9, "End after so many seconds")->type_name("S");
}

CLI::Option* AddSensorOptions(CLI::App& command, DriverParam& param) {
  CalibrationParam& calibration = param.calibration_param;
  CLI::Option* sensor = command.add_option_function<std::string>(
      "--sensor",
      [&param](const std::string& address) {
        param.calib_from_lidar = true;
        param.calibration_param.lidar_ip = address;
      },
      "Download the calibration from this sensor");
  sensor->check(CLI::ValidIPV4)->type_name("IP");
  if (CLI::Option* folder = command.get_option_no_throw("--calib")) {
    sensor->excludes(folder);
  }
  CLI::Option* port =
      AddNumber(command, "--command-port", calibration.lidar_port, 1, 65535, "The sensor's command port");
  port->needs(sensor);
  sensor->needs(port);
  command.add_option("--command-host", calibration.local_ip, "Local address for commands; without it: all")
      ->check(CLI::ValidIPV4)
      ->needs(sensor)
      ->type_name("IP");
  AddNumber(command, "--command-local-port", calibration.local_port, 0, 65535,
            "Local port for commands; 0: any")
      ->needs(sensor);
  command.parse_complete_callback([&param] {
    if (config::SharesItsPort(param))
      throw WrongUsage("--command-local-port needs another port than --port.");
  });
  return sensor;
}

void AddUncalibratedOption(CLI::App& command, bool& uncalibrated) {
  command.add_flag("--uncalibrated", uncalibrated, "Go on where there is no usable calibration");
}

void AddReplayOptions(CLI::App& command, DriverParam& param, bool& uncalibrated) {
  command.add_option("FILE", param.input_param.pcap_path, "The recording, a pcap or pcapng file")->required();
  AddModelOption(command, param.lidar_type);
  AddNumber(command, "--port", param.input_param.msop_port, 0, 65535,
            "The sensor's UDP data port; 0 takes every packet")
      ->default_str("0");
  command
      .add_option("--calib", param.calibration_param.calib_folder,
                  "Folder of calibration files, for TS4B and TS6")
      ->type_name("FOLDER");
  AddUncalibratedOption(command, uncalibrated);
  AddDecoderOptions(command, param.decoder_param);
  AddDriverLogOption(command);
}

}  // namespace orva
