// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_MESSAGES_MESSAGES_H_
#define ORVA_TOOLS_MESSAGES_MESSAGES_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// The messages of robotics middleware that the driver's results become: fields and order of ROS 2's public
// definitions, as plain records. How they become bytes is another matter: cdr.h here, generated code
// elsewhere.
namespace orva::messages {

/// Since 1970-01-01 UTC.
struct Time {
  std::int32_t sec = 0;
  std::uint32_t nanosec = 0;  ///< below 10^9
};

struct Header {
  Time stamp;
  std::string frame_id;
};

struct Vector3 {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

struct Quaternion {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  double w = 1.0;
};

struct PointField {
  enum : std::uint8_t { INT8 = 1, UINT8, INT16, UINT16, INT32, UINT32, FLOAT32, FLOAT64 };
  std::string name;
  std::uint32_t offset = 0;   ///< bytes from the start of the point
  std::uint8_t datatype = 0;  ///< one of the above
  std::uint32_t count = 1;
};

/// sensor_msgs/msg/PointCloud2
struct PointCloud2 {
  Header header;
  std::uint32_t height = 1;  ///< rows; 1: a cloud without an order
  std::uint32_t width = 0;   ///< points a row
  std::vector<PointField> fields;
  bool is_bigendian = false;
  std::uint32_t point_step = 0;    ///< bytes a point
  std::uint32_t row_step = 0;      ///< bytes a row
  std::vector<std::uint8_t> data;  ///< height * row_step bytes
  bool is_dense = false;           ///< true: no coordinate is NaN
};

/// sensor_msgs/msg/Imu. Radians per second, metres per second squared. A covariance of zeros is an unknown
/// one; -1 as its first value says that the quantity itself is not measured.
struct Imu {
  Header header;
  Quaternion orientation;
  std::array<double, 9> orientation_covariance = {-1.0};
  Vector3 angular_velocity;
  std::array<double, 9> angular_velocity_covariance = {};
  Vector3 linear_acceleration;
  std::array<double, 9> linear_acceleration_covariance = {};
};

struct KeyValue {
  std::string key;
  std::string value;
};

struct DiagnosticStatus {
  enum : std::uint8_t { OK = 0, WARN, ERROR, STALE };
  std::uint8_t level = OK;  ///< one of the above
  std::string name;
  std::string message;
  std::string hardware_id;
  std::vector<KeyValue> values;
};

/// diagnostic_msgs/msg/DiagnosticArray
struct DiagnosticArray {
  Header header;
  std::vector<DiagnosticStatus> status;
};

}  // namespace orva::messages

#endif  // ORVA_TOOLS_MESSAGES_MESSAGES_H_
