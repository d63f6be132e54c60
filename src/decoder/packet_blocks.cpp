// SPDX-License-Identifier: Apache-2.0
#include "decoder/packet_blocks.h"

#include <numbers>

namespace tevoro::lidar {

double UtcClock::Seconds(const UTCBlock& utc) {
  const std::array<int, 6> fields = {utc.year, utc.month, utc.day, utc.hour, utc.minute, utc.second};
  if (!filled_ || fields != fields_) {
    std::tm time{};
    time.tm_year = utc.year - 1900;
    time.tm_mon = utc.month - 1;
    time.tm_mday = utc.day;
    time.tm_hour = utc.hour;
    time.tm_min = utc.minute;
    time.tm_sec = utc.second;
    seconds_ = timegm(&time);
    fields_ = fields;
    filled_ = true;
  }
  return static_cast<double>(seconds_) + utc.microseconds * 1e-6;
}

void FillImuMsg(const IMUBlock& imu, double rate_scale, double timestamp, ImuMsg& msg) {
  // 1/2048 of standard gravity
  constexpr double kAccelerationScale = 0.004788403;
  const auto rate = [&](double count) { return static_cast<float>(count * rate_scale * std::numbers::pi); };
  const auto acceleration = [](double count) { return static_cast<float>(count * kAccelerationScale); };
  const auto widen = [](int16_t count) { return static_cast<double>(count); };
  const auto& g = imu.angular_rate;
  const auto& a = imu.acceleration;
  msg.valid = true;
  msg.timestamp = timestamp;
  msg.angular_velocity_x = rate(-widen(g[2]));
  msg.angular_velocity_y = rate(widen(g[0]));
  msg.angular_velocity_z = rate(-widen(g[1]));
  msg.linear_acceleration_x = acceleration(-widen(a[2]));
  msg.linear_acceleration_y = acceleration(widen(a[0]));
  msg.linear_acceleration_z = acceleration(-widen(a[1]));
}

}  // namespace tevoro::lidar
