// SPDX-License-Identifier: Apache-2.0
#include "messages/schemas.h"

#include <initializer_list>
#include <utility>

namespace orva::messages {
namespace {

struct Part {
  const char* name;  ///< package and type
  const char* text;
};

constexpr Part kTime = {"builtin_interfaces/Time",
                        "int32 sec\n"
                        "uint32 nanosec\n"};
constexpr Part kHeader = {"std_msgs/Header",
                          "builtin_interfaces/Time stamp\n"
                          "string frame_id\n"};
constexpr Part kPointField = {"sensor_msgs/PointField",
                              "uint8 INT8=1\n"
                              "uint8 UINT8=2\n"
                              "uint8 INT16=3\n"
                              "uint8 UINT16=4\n"
                              "uint8 INT32=5\n"
                              "uint8 UINT32=6\n"
                              "uint8 FLOAT32=7\n"
                              "uint8 FLOAT64=8\n"
                              "string name\n"
                              "uint32 offset\n"
                              "uint8 datatype\n"
                              "uint32 count\n"};
constexpr Part kVector3 = {"geometry_msgs/Vector3",
                           "float64 x\n"
                           "float64 y\n"
                           "float64 z\n"};
constexpr Part kQuaternion = {"geometry_msgs/Quaternion",
                              "float64 x 0\n"
                              "float64 y 0\n"
                              "float64 z 0\n"
                              "float64 w 1\n"};
constexpr Part kKeyValue = {"diagnostic_msgs/KeyValue",
                            "string key\n"
                            "string value\n"};
constexpr Part kDiagnosticStatus = {"diagnostic_msgs/DiagnosticStatus",
                                    "byte OK=0\n"
                                    "byte WARN=1\n"
                                    "byte ERROR=2\n"
                                    "byte STALE=3\n"
                                    "byte level\n"
                                    "string name\n"
                                    "string message\n"
                                    "string hardware_id\n"
                                    "diagnostic_msgs/KeyValue[] values\n"};

/// The form in which recordings of ROS 2 carry them: a line of 80 equals signs before each further
/// definition.
std::string Join(std::string text, std::initializer_list<Part> parts) {
  for (const Part& part : parts) {
    text += std::string(80, '=') + "\nMSG: " + part.name + "\n" + part.text;
  }
  return text;
}

}  // namespace

Schema PointCloud2Schema() {
  return {"sensor_msgs/msg/PointCloud2", Join("std_msgs/Header header\n"
                                              "uint32 height\n"
                                              "uint32 width\n"
                                              "sensor_msgs/PointField[] fields\n"
                                              "bool is_bigendian\n"
                                              "uint32 point_step\n"
                                              "uint32 row_step\n"
                                              "uint8[] data\n"
                                              "bool is_dense\n",
                                              {kHeader, kTime, kPointField})};
}

Schema ImuSchema() {
  return {"sensor_msgs/msg/Imu", Join("std_msgs/Header header\n"
                                      "geometry_msgs/Quaternion orientation\n"
                                      "float64[9] orientation_covariance\n"
                                      "geometry_msgs/Vector3 angular_velocity\n"
                                      "float64[9] angular_velocity_covariance\n"
                                      "geometry_msgs/Vector3 linear_acceleration\n"
                                      "float64[9] linear_acceleration_covariance\n",
                                      {kHeader, kTime, kQuaternion, kVector3})};
}

Schema DiagnosticArraySchema() {
  return {"diagnostic_msgs/msg/DiagnosticArray", Join("std_msgs/Header header\n"
                                                      "diagnostic_msgs/DiagnosticStatus[] status\n",
                                                      {kHeader, kTime, kDiagnosticStatus, kKeyValue})};
}

}  // namespace orva::messages
