// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_FRAME_TABLE_H_
#define ORVA_TOOLS_SHARED_FRAME_TABLE_H_

#include <cstddef>
#include <string>

#include "shared/cloud.h"

namespace orva {

// The table of frames, at most 80 columns wide.

std::string FrameTableHead();
/// `part` above 0 marks a further cloud of the same frame; `valid` of its points are valid.
std::string FrameTableRow(int frame, int part, const Cloud& cloud, std::size_t valid);

/// "2026-03-01 12:30:00.250", UTC; "-" for 0, which means that the model gives no time.
std::string TimeText(double seconds);

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_FRAME_TABLE_H_
