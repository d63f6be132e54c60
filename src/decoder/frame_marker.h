// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace tevoro::lidar {

/// The grid models end a frame at column 127 of line 191. Grid codes are line * 256 + column.
inline constexpr uint16_t kLastColumn = 0x7F;
inline constexpr uint16_t kLastLine = 0xBF;
inline constexpr uint16_t kFrameEndCode = kLastLine << 8 | kLastColumn;

/// Is this a frame's last measurement?
constexpr bool IsFrameEnd(uint16_t line, uint16_t column) {
  return line == kLastLine && column == kLastColumn;
}

/// Looks for the frame end in `blocks` blocks that open with column and line, the first at `first`, `stride`
/// bytes apart. True, and in `seq` the block after it, at the first hit.
inline bool FindFrameEnd(const uint8_t* data, size_t first, size_t stride, uint16_t blocks, uint16_t& seq) {
  for (uint16_t k = 0; k < blocks; ++k) {
    const uint8_t* block = data + first + stride * k;
    if (IsFrameEnd(block[1], block[0])) {
      seq = static_cast<uint16_t>(k + 1);
      return true;
    }
  }
  return false;
}

}  // namespace tevoro::lidar
