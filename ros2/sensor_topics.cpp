// SPDX-License-Identifier: Apache-2.0
#include "sensor_topics.h"

#include <ros2_types.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <vector>

namespace orva::ros2 {
namespace {

// DDS reads the records below and changes none of it, though their types do not say so.
char* Text(const std::string& text) {
  return const_cast<char*>(text.c_str());
}

std_msgs_msg_dds__Header_ View(const messages::Header& header) {
  return {{header.stamp.sec, header.stamp.nanosec}, Text(header.frame_id)};
}

geometry_msgs_msg_dds__Vector3_ View(const messages::Vector3& v) {
  return {v.x, v.y, v.z};
}

double Now() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

bool Write(const Entity& writer, const void* sample) {
  return dds_write(writer.get(), sample) == DDS_RETCODE_OK;
}

}  // namespace

SensorTopics::SensorTopics(const Participant& participant, const std::string& space, Delivery delivery,
                           messages::CloudOptions options)
    : options_(std::move(options)),
      points_(MakeWriter(participant, sensor_msgs_msg_dds__PointCloud2__desc, space + "/points", delivery)),
      imu_(MakeWriter(participant, sensor_msgs_msg_dds__Imu__desc, space + "/imu/data_raw", delivery,
                      kImuDepth)),
      diagnostics_(MakeWriter(participant, diagnostic_msgs_msg_dds__DiagnosticArray__desc, "/diagnostics",
                              Delivery::kReliable)),
      mounting_(
          MakeWriter(participant, tf2_msgs_msg_dds__TFMessage__desc, "/tf_static", Delivery::kLatched)) {}

bool SensorTopics::Publish(const PointCloud<PointTime>& cloud, double captured) {
  if (dds_get_matched_subscriptions(points_.get(), nullptr, 0) == 0) return true;  // nobody would miss it
  messages::FillPointCloud2(cloud, captured, options_, message_);
  std::vector<sensor_msgs_msg_dds__PointField_> fields;
  for (const messages::PointField& field : message_.fields)
    fields.push_back({Text(field.name), field.offset, field.datatype, field.count});

  sensor_msgs_msg_dds__PointCloud2_ sample{};
  sample.header_ = View(message_.header);
  sample.height_ = message_.height;
  sample.width_ = message_.width;
  const auto field_count = static_cast<uint32_t>(fields.size());
  sample.fields_ = {field_count, field_count, fields.data(), false};
  sample.is_bigendian_ = message_.is_bigendian;
  sample.point_step_ = message_.point_step;
  sample.row_step_ = message_.row_step;
  const auto bytes = static_cast<uint32_t>(message_.data.size());
  sample.data_ = {bytes, bytes, message_.data.data(), false};
  sample.is_dense_ = message_.is_dense;
  return Write(points_, &sample);
}

bool SensorTopics::Publish(const ImuMsg& reading, double received) {
  const messages::Imu message = messages::ToImu(reading, received, options_.frame_id);
  sensor_msgs_msg_dds__Imu_ sample{};
  sample.header_ = View(message.header);
  const messages::Quaternion& q = message.orientation;
  sample.orientation_ = {q.x, q.y, q.z, q.w};
  sample.angular_velocity_ = View(message.angular_velocity);
  sample.linear_acceleration_ = View(message.linear_acceleration);
  std::copy(message.orientation_covariance.begin(), message.orientation_covariance.end(),
            sample.orientation_covariance_);
  std::copy(message.angular_velocity_covariance.begin(), message.angular_velocity_covariance.end(),
            sample.angular_velocity_covariance_);
  std::copy(message.linear_acceleration_covariance.begin(), message.linear_acceleration_covariance.end(),
            sample.linear_acceleration_covariance_);
  return Write(imu_, &sample);
}

void SensorTopics::Publish(const DriverStatistics& now, const DriverStatistics& before, double seconds,
                           const messages::DiagnosticSource& source) {
  const messages::DiagnosticArray message =
      messages::ToDiagnostics(now, before, seconds, messages::ToTime(Now()), source);
  std::vector<std::vector<diagnostic_msgs_msg_dds__KeyValue_>> values;
  std::vector<diagnostic_msgs_msg_dds__DiagnosticStatus_> status;
  for (const messages::DiagnosticStatus& one : message.status) {
    auto& pairs = values.emplace_back();
    for (const messages::KeyValue& pair : one.values) pairs.push_back({Text(pair.key), Text(pair.value)});
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    const messages::DiagnosticStatus& one = message.status[i];
    const auto count = static_cast<uint32_t>(values[i].size());
    status.push_back({one.level,
                      Text(one.name),
                      Text(one.message),
                      Text(one.hardware_id),
                      {count, count, values[i].data(), false}});
  }
  const auto count = static_cast<uint32_t>(status.size());
  diagnostic_msgs_msg_dds__DiagnosticArray_ sample{View(message.header),
                                                   {count, count, status.data(), false}};
  Write(diagnostics_, &sample);
}

bool SensorTopics::HasReaders(int count) const {
  return dds_get_matched_subscriptions(points_.get(), nullptr, 0) >= count &&
         dds_get_matched_subscriptions(imu_.get(), nullptr, 0) >= count;
}

void SensorTopics::WaitForReaders(std::chrono::milliseconds longest) const {
  for (const Entity* writer : {&points_, &imu_}) dds_wait_for_acks(writer->get(), DDS_MSECS(longest.count()));
}

void SensorTopics::Publish(const Mounting& mounting) {
  const auto half = [](double degrees) { return degrees * M_PI / 360.0; };
  const double cr = std::cos(half(mounting.roll)), sr = std::sin(half(mounting.roll));
  const double cp = std::cos(half(mounting.pitch)), sp = std::sin(half(mounting.pitch));
  const double cy = std::cos(half(mounting.yaw)), sy = std::sin(half(mounting.yaw));

  geometry_msgs_msg_dds__TransformStamped_ transform{};
  const messages::Header header = {messages::ToTime(Now()), mounting.parent};
  transform.header_ = View(header);
  transform.child_frame_id_ = Text(options_.frame_id);
  transform.transform.translation_ = {mounting.x, mounting.y, mounting.z};
  // The product of the three turns, as the driver composes them: Rz(yaw) * Ry(pitch) * Rx(roll).
  transform.transform.rotation_ = {sr * cp * cy - cr * sp * sy, cr * sp * cy + sr * cp * sy,
                                   cr * cp * sy - sr * sp * cy, cr * cp * cy + sr * sp * sy};
  const tf2_msgs_msg_dds__TFMessage_ sample{{1, 1, &transform, false}};
  Write(mounting_, &sample);
}

}  // namespace orva::ros2
