// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_MESSAGES_FOXGLOVE_CLOUD_H_
#define ORVA_TOOLS_MESSAGES_FOXGLOVE_CLOUD_H_

#include <cstdint>
#include <vector>

#include "messages/messages.h"
#include "messages/schemas.h"

// Clouds as protobuf for viewers. Where the build has protobuf: target orva_messages_foxglove.
namespace orva::messages {

/// foxglove.PointCloud; the text is a serialized FileDescriptorSet of it and all that it imports.
Schema FoxgloveCloudSchema();

/// The cloud with the pose of its frame's origin. Overwrites `bytes`. Rows are not kept: the type has none.
void WriteFoxglove(const PointCloud2& cloud, std::vector<std::uint8_t>& bytes);

}  // namespace orva::messages

#endif  // ORVA_TOOLS_MESSAGES_FOXGLOVE_CLOUD_H_
