// SPDX-License-Identifier: Apache-2.0
//
// Messages as the records that DDS writes. They refer to the messages, which outlive them.
#pragma once

#include <ros2_types.h>

#include <string>

#include "messages/messages.h"
#include "participant.h"

namespace orva::ros2 {

/// DDS reads the records and changes none of it, though their types do not say so.
inline char* Text(const std::string& text) {
  return const_cast<char*>(text.c_str());
}

inline std_msgs_msg_dds__Header_ View(const messages::Header& header) {
  return {{header.stamp.sec, header.stamp.nanosec}, Text(header.frame_id)};
}

/// False where DDS did not take the sample in time.
inline bool Write(const Entity& writer, const void* sample) {
  return dds_write(writer.get(), sample) == DDS_RETCODE_OK;
}

}  // namespace orva::ros2
