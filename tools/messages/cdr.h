// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_MESSAGES_CDR_H_
#define ORVA_TOOLS_MESSAGES_CDR_H_

#include <cstdint>
#include <vector>

#include "messages/messages.h"

namespace orva::messages {

// Messages as Common Data Representation, the bytes in which ROS 2 stores and sends them: version 1,
// little-endian, with the encapsulation header 00 01 00 00. Values are aligned to their size, counted from
// behind the header. Each overwrites `bytes`, and keeps its memory.

void WriteCdr(const PointCloud2& message, std::vector<std::uint8_t>& bytes);
void WriteCdr(const Imu& message, std::vector<std::uint8_t>& bytes);
void WriteCdr(const DiagnosticArray& message, std::vector<std::uint8_t>& bytes);

}  // namespace orva::messages

#endif  // ORVA_TOOLS_MESSAGES_CDR_H_
