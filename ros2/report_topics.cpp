// SPDX-License-Identifier: Apache-2.0
#include "report_topics.h"

#include <chrono>
#include <cmath>
#include <utility>

#include "messages/from_driver.h"
#include "views.h"

namespace orva::ros2 {
namespace {

messages::Header HeaderOfNow(std::string frame) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return {messages::ToTime(std::chrono::duration<double>(now).count()), std::move(frame)};
}

geometry_msgs_msg_dds__Transform_ TransformOf(const Mounting& mounting) {
  const auto half = [](double degrees) { return degrees * M_PI / 360.0; };
  const double cr = std::cos(half(mounting.roll)), sr = std::sin(half(mounting.roll));
  const double cp = std::cos(half(mounting.pitch)), sp = std::sin(half(mounting.pitch));
  const double cy = std::cos(half(mounting.yaw)), sy = std::sin(half(mounting.yaw));
  // The product of the three turns, as the driver composes them: Rz(yaw) * Ry(pitch) * Rx(roll).
  return {{mounting.x, mounting.y, mounting.z},
          {sr * cp * cy - cr * sp * sy, cr * sp * cy + sr * cp * sy, cr * cp * sy - sr * sp * cy,
           cr * cp * cy + sr * sp * sy}};
}

}  // namespace

ReportTopics::ReportTopics(const Participant& participant, const std::vector<Mounting>& mountings)
    : diagnostics_(MakeWriter(participant, diagnostic_msgs_msg_dds__DiagnosticArray__desc, "/diagnostics",
                              Delivery::kReliable)),
      mountings_(
          MakeWriter(participant, tf2_msgs_msg_dds__TFMessage__desc, "/tf_static", Delivery::kLatched)) {
  std::vector<messages::Header> headers;
  for (const Mounting& mounting : mountings) headers.push_back(HeaderOfNow(mounting.parent));
  std::vector<geometry_msgs_msg_dds__TransformStamped_> transforms;
  for (std::size_t i = 0; i < mountings.size(); ++i) {
    if (mountings[i].parent.empty()) continue;
    transforms.push_back({View(headers[i]), Text(mountings[i].frame), TransformOf(mountings[i])});
  }
  if (transforms.empty()) return;
  const auto count = static_cast<uint32_t>(transforms.size());
  const tf2_msgs_msg_dds__TFMessage_ sample{{count, count, transforms.data(), false}};
  Write(mountings_, &sample);
}

void ReportTopics::Publish(std::vector<messages::DiagnosticStatus> status) {
  const messages::DiagnosticArray message = {HeaderOfNow(""), std::move(status)};
  std::vector<std::vector<diagnostic_msgs_msg_dds__KeyValue_>> values;
  std::vector<diagnostic_msgs_msg_dds__DiagnosticStatus_> records;
  for (const messages::DiagnosticStatus& one : message.status) {
    auto& pairs = values.emplace_back();
    for (const messages::KeyValue& pair : one.values) pairs.push_back({Text(pair.key), Text(pair.value)});
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    const messages::DiagnosticStatus& one = message.status[i];
    const auto count = static_cast<uint32_t>(values[i].size());
    records.push_back({one.level,
                       Text(one.name),
                       Text(one.message),
                       Text(one.hardware_id),
                       {count, count, values[i].data(), false}});
  }
  const auto count = static_cast<uint32_t>(records.size());
  const diagnostic_msgs_msg_dds__DiagnosticArray_ sample{View(message.header),
                                                         {count, count, records.data(), false}};
  Write(diagnostics_, &sample);
}

}  // namespace orva::ros2
