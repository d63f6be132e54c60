// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_MESSAGES_SCHEMAS_H_
#define ORVA_TOOLS_MESSAGES_SCHEMAS_H_

#include <string>

namespace orva::messages {

/// A message's type name and its definition as ROS 2's text form ("ros2msg"), with those it consists of.
struct Schema {
  std::string name;
  std::string text;
};

Schema PointCloud2Schema();      ///< sensor_msgs/msg/PointCloud2
Schema ImuSchema();              ///< sensor_msgs/msg/Imu
Schema DiagnosticArraySchema();  ///< diagnostic_msgs/msg/DiagnosticArray

}  // namespace orva::messages

#endif  // ORVA_TOOLS_MESSAGES_SCHEMAS_H_
