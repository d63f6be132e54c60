// SPDX-License-Identifier: Apache-2.0
#include "messages/foxglove_cloud.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>

#include <set>

#include "foxglove/PointCloud.pb.h"

namespace orva::messages {
namespace {

using foxglove::PackedElementField;

/// Imports come before what imports them, each once.
void AddFile(const google::protobuf::FileDescriptor& file, std::set<std::string>& known,
             google::protobuf::FileDescriptorSet& all) {
  if (!known.insert(file.name()).second) {
    return;
  }
  for (int i = 0; i < file.dependency_count(); ++i) {
    AddFile(*file.dependency(i), known, all);
  }
  file.CopyTo(all.add_file());
}

PackedElementField::NumericType ToNumericType(std::uint8_t datatype) {
  switch (datatype) {
    case PointField::INT8:
      return PackedElementField::INT8;
    case PointField::UINT8:
      return PackedElementField::UINT8;
    case PointField::INT16:
      return PackedElementField::INT16;
    case PointField::UINT16:
      return PackedElementField::UINT16;
    case PointField::INT32:
      return PackedElementField::INT32;
    case PointField::UINT32:
      return PackedElementField::UINT32;
    case PointField::FLOAT32:
      return PackedElementField::FLOAT32;
    case PointField::FLOAT64:
      return PackedElementField::FLOAT64;
  }
  return PackedElementField::UNKNOWN;
}

}  // namespace

Schema FoxgloveCloudSchema() {
  google::protobuf::FileDescriptorSet all;
  std::set<std::string> known;
  AddFile(*foxglove::PointCloud::descriptor()->file(), known, all);
  return {foxglove::PointCloud::descriptor()->full_name(), all.SerializeAsString()};
}

void WriteFoxglove(const PointCloud2& cloud, std::vector<std::uint8_t>& bytes) {
  foxglove::PointCloud message;
  message.mutable_timestamp()->set_seconds(cloud.header.stamp.sec);
  message.mutable_timestamp()->set_nanos(static_cast<std::int32_t>(cloud.header.stamp.nanosec));
  message.set_frame_id(cloud.header.frame_id);
  message.mutable_pose()->mutable_position();
  message.mutable_pose()->mutable_orientation()->set_w(1.0);
  message.set_point_stride(cloud.point_step);
  for (const PointField& field : cloud.fields) {
    PackedElementField& packed = *message.add_fields();
    packed.set_name(field.name);
    packed.set_offset(field.offset);
    packed.set_type(ToNumericType(field.datatype));
  }
  message.set_data(cloud.data.data(), cloud.data.size());
  bytes.resize(message.ByteSizeLong());
  message.SerializeWithCachedSizesToArray(bytes.data());
}

}  // namespace orva::messages
