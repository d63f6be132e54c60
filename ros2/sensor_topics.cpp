// SPDX-License-Identifier: Apache-2.0
#include "sensor_topics.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "views.h"

namespace orva::ros2 {
namespace {

geometry_msgs_msg_dds__Vector3_ View(const messages::Vector3& v) {
  return {v.x, v.y, v.z};
}

}  // namespace

SensorTopics::SensorTopics(const Participant& participant, const std::string& space, Delivery delivery,
                           messages::CloudOptions options)
    : options_(std::move(options)),
      points_(MakeWriter(participant, sensor_msgs_msg_dds__PointCloud2__desc, space + "/points", delivery)),
      imu_(MakeWriter(participant, sensor_msgs_msg_dds__Imu__desc, space + "/imu/data_raw", delivery,
                      kImuDepth)) {}

Outcome SensorTopics::Publish(const PointCloud<PointTime>& cloud, double captured) {
  if (dds_get_matched_subscriptions(points_.get(), nullptr, 0) == 0) return Outcome::kNoReader;
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
  return Write(points_, &sample) ? Outcome::kSent : Outcome::kNotTaken;
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

bool SensorTopics::HasReaders(int count) const {
  return dds_get_matched_subscriptions(points_.get(), nullptr, 0) >= count &&
         dds_get_matched_subscriptions(imu_.get(), nullptr, 0) >= count;
}

void SensorTopics::WaitForReaders(std::chrono::milliseconds longest) const {
  for (const Entity* writer : {&points_, &imu_}) dds_wait_for_acks(writer->get(), DDS_MSECS(longest.count()));
}

}  // namespace orva::ros2
