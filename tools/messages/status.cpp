// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstdio>

#include "messages/from_driver.h"

namespace orva::messages {
namespace {

struct Count {
  const char* key;
  std::uint64_t DriverStatistics::*value;
  bool is_loss;
};
constexpr std::array<Count, 15> kCounts = {
    {{"packets received", &DriverStatistics::received, false},
     {"bytes received", &DriverStatistics::received_bytes, false},
     {"packets decoded", &DriverStatistics::decoded, false},
     {"packets of wrong length", &DriverStatistics::refused_length, true},
     {"packets of wrong identifier", &DriverStatistics::refused_identifier, true},
     {"packets not for us", &DriverStatistics::not_for_us, false},
     {"packets discarded", &DriverStatistics::discarded, true},
     {"packets queued", &DriverStatistics::queued, false},
     {"packets dropped by the kernel", &DriverStatistics::kernel_dropped, true},
     {"times out of memory", &DriverStatistics::out_of_memory, true},
     {"frames", &DriverStatistics::frames, false},
     {"IMU samples", &DriverStatistics::imu_samples, false},
     {"plays", &DriverStatistics::plays, false},
     {"receive buffer bytes", &DriverStatistics::receive_buffer_bytes, false},
     {"calibration bytes", &DriverStatistics::calibration_bytes, false}}};

std::string RateText(std::uint64_t now, std::uint64_t before, double seconds) {
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%.1f",
                seconds > 0.0 ? static_cast<double>(now - before) / seconds : 0.0);
  return text.data();
}

}  // namespace

const char* CalibrationName(CalibrationState state) {
  switch (state) {
    case CALIBRATION_NONE:
      return "none";
    case CALIBRATION_FROM_FOLDER:
      return "from the folder";
    case CALIBRATION_DOWNLOADING:
      return "downloading";
    case CALIBRATION_FROM_SENSOR:
      return "from the sensor";
  }
  return "unknown";
}

Imu ToImu(const ImuMsg& sample, double captured, const std::string& frame_id) {
  Imu message;
  message.header = {ToTime(sample.timestamp), frame_id};
  if (message.header.stamp.sec == 0) {
    message.header.stamp = ToTime(captured);
  }
  message.angular_velocity = {sample.angular_velocity_x, sample.angular_velocity_y,
                              sample.angular_velocity_z};
  message.linear_acceleration = {sample.linear_acceleration_x, sample.linear_acceleration_y,
                                 sample.linear_acceleration_z};
  return message;
}

DiagnosticArray ToDiagnostics(const DriverStatistics& now, const DriverStatistics& before, double seconds,
                              Time stamp, const DiagnosticSource& source) {
  DiagnosticStatus status;
  status.name = source.name;
  status.hardware_id = source.hardware_id;
  std::uint64_t lost = 0;
  for (const Count& count : kCounts) {
    status.values.push_back({count.key, std::to_string(now.*count.value)});
    lost += count.is_loss ? now.*count.value - before.*count.value : 0;
  }
  status.values.push_back({"frames per second", RateText(now.frames, before.frames, seconds)});
  status.values.push_back({"packets per second", RateText(now.received, before.received, seconds)});
  status.values.push_back({"calibration", CalibrationName(now.calibration)});
  if (now.received == before.received) {
    status.level = DiagnosticStatus::STALE;
    status.message = "no packets";
  } else if (lost > 0) {
    status.level = DiagnosticStatus::WARN;
    status.message = std::to_string(lost) + " packets lost or refused";
  } else {
    status.message = "receiving";
  }
  return {{stamp, ""}, {status}};
}

}  // namespace orva::messages
