// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "orva_driver.h"
#include "participant.h"
#include "report_topics.h"
#include "sensor_topics.h"

namespace orva::ros2 {

/// One sensor and how it is shown.
struct SensorSetup {
  std::string name;   ///< "TS4B 127.0.0.1:6699"; of a configuration file the section's
  std::string space;  ///< namespace of its topics: "" or as "/front"
  DriverParam param;  ///< without mounting: that goes out as a transform
  Mounting mounting;
  bool uncalibrated = false;
  messages::CloudOptions cloud;
};

struct Options {
  std::vector<SensorSetup> sensors;
  bool is_recording = false;  ///< then there is one sensor
  double rate = 1.0;          ///< of the recording's own pace
  bool loop = false;
  int readers = 0;        ///< a recording begins when so many readers of points and IMU samples are there
  double duration = 0.0;  ///< seconds; 0: until told to end
  Delivery delivery = Delivery::kReliable;
};

/// Reads the command line. False where it only asked for help or the version, which has been printed. Throws
/// std::invalid_argument and the configuration file's error.
bool ReadOptions(int argc, const char* const* argv, Options& options);

}  // namespace orva::ros2
