// SPDX-License-Identifier: Apache-2.0
#include "config/sensors.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>

#include "expect.h"
#include "targets.h"

namespace orva::fuzz {

void Config(const uint8_t* data, size_t size) {
  static const int file = memfd_create("config", MFD_CLOEXEC);
  ORVA_EXPECT(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
  std::vector<config::Sensor> sensors;
  try {
    sensors = config::ReadSensors("/proc/self/fd/" + std::to_string(file));
  } catch (const config::Error& error) {
    ORVA_EXPECT(std::string(error.what()).ends_with('.'));
    return;
  }
  ORVA_EXPECT(!sensors.empty() && sensors.size() <= 64);
  for (const config::Sensor& sensor : sensors) {
    const DecoderParam& limits = sensor.param.decoder_param;
    ORVA_EXPECT(sensor.param.input_param.msop_port > 0 && limits.min_distance <= limits.max_distance);
    ORVA_EXPECT(std::isfinite(limits.x_offset + limits.roll) && std::isfinite(limits.max_elevation));
    ORVA_EXPECT(sensor.param.calib_from_lidar == !sensor.param.calibration_param.lidar_ip.empty());
    for (const config::Sensor& other : sensors) ORVA_EXPECT(&other == &sensor || other.name != sensor.name);
  }
}

}  // namespace orva::fuzz
