// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <ctime>

#include "decoder/little_endian.h"
#include "orva_driver.h"

namespace tevoro::lidar {

/// The sensor's clock in a packet, 10 bytes, UTC.
struct UTCBlock {
  uint32_t microseconds = 0;  ///< 24 bits; may exceed a second
  uint16_t year = 0;
  uint8_t month = 0;  ///< 1-12
  uint8_t day = 0;
  uint8_t hour = 0;
  uint8_t minute = 0;
  uint8_t second = 0;

  static UTCBlock Read(const uint8_t* bytes) {
    UTCBlock utc;
    utc.microseconds = Field<0, 3>::Read(bytes);
    utc.year = static_cast<uint16_t>(Field<3, 2>::Read(bytes));
    utc.month = bytes[5];
    utc.day = bytes[6];
    utc.hour = bytes[7];
    utc.minute = bytes[8];
    utc.second = bytes[9];
    return utc;
  }
};

/// Turns UTC blocks into seconds since the epoch. Keeps the last whole second: `timegm` is far slower than
/// decoding a packet, and some thousand packets share one second.
class UtcClock {
 public:
  double Seconds(const UTCBlock& utc);

 private:
  std::array<int, 6> fields_{};  ///< year, month, day, hour, minute, second of `seconds_`
  std::time_t seconds_ = 0;
  bool filled_ = false;
};

/// One IMU sample as the packet carries it: counts on the sensor's own axes.
struct IMUBlock {
  std::array<int16_t, 3> acceleration{};
  std::array<int16_t, 3> angular_rate{};

  /// The six words stand one after the other, acceleration first.
  static IMUBlock Read(const uint8_t* bytes) {
    IMUBlock imu;
    imu.acceleration = {SignedField<0>::Read(bytes), SignedField<2>::Read(bytes),
                        SignedField<4>::Read(bytes)};
    imu.angular_rate = {SignedField<6>::Read(bytes), SignedField<8>::Read(bytes),
                        SignedField<10>::Read(bytes)};
    return imu;
  }

  bool operator==(const IMUBlock&) const = default;
};

/// Fills `msg` with a sample. The IMU is mounted turned against the point cloud: its third axis points
/// backward, its first to the left, its second down. `rate_scale`: half turns per second and count.
void FillImuMsg(const IMUBlock& imu, double rate_scale, double timestamp, ImuMsg& msg);

}  // namespace tevoro::lidar
