// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "orva_driver.h"

namespace orva::config {

/// One sensor of a configuration file; docs/several-sensors.md lists the keys.
struct Sensor {
  std::string name;   ///< of the section
  DriverParam param;  ///< live mode; limits that let every point pass unless the file narrows them
  bool uncalibrated = false;
  std::string out;                 ///< folder for clouds; empty: none are stored
  std::string formats;             ///< as in "pcd,ply"; empty: the program's default
  std::string imu;                 ///< file for IMU samples; empty: none
  std::string frame_id = "lidar";  ///< name of the sensor's frame of reference
};

/// What is wrong with a file: its path, where known the line, and the reason.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Whether data and the replies to commands would arrive at one port of one address: both sockets can be
/// opened, and one then gets what was sent to the other.
bool SharesItsPort(const DriverParam& param);

/// Reads the sections [sensor.NAME] of a TOML file, in the order of their names. Relative paths in it are
/// relative to its folder. Throws Error for what it does not know, for a section without model or port, and
/// for two sensors that would share a port of one address, be it for data or for the replies to commands.
std::vector<Sensor> ReadSensors(const std::filesystem::path& path);

}  // namespace orva::config
