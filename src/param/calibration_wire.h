// SPDX-License-Identifier: Apache-2.0
//
// The packets of a calibration download, little-endian. The sensor's stream comes in replies to requests for
// a piece of it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tevoro::lidar {

/// Request: offset of each field, and the whole.
namespace calibration_request {
inline constexpr size_t kMagic = 0;      ///< u8, four times kMagicByte
inline constexpr size_t kLastChunk = 4;  ///< u8, 1: this piece completes the stream
inline constexpr size_t kOffset = 5;     ///< u32, bytes asked for before
inline constexpr size_t kCount = 9;      ///< u16, bytes asked for
inline constexpr size_t kBytes = 12;     ///< the last is the checksum: u8, sum of the others
inline constexpr uint8_t kMagicByte = 0xA5;
}  // namespace calibration_request

/// Reply: offset of each field. What lies between them is not interpreted.
namespace calibration_reply {
inline constexpr int kMagic = 0;         ///< u32, CALIB_REPLY_MAGIC
inline constexpr int kStreamLength = 4;  ///< u32, length of the whole stream plus kLengthExcess
inline constexpr int kPayload = 36;      ///< the piece
inline constexpr int kTrailerBytes = 3;  ///< behind the piece
inline constexpr int kOverhead = kPayload + kTrailerBytes;
inline constexpr int kMostBytes = 2048;  ///< what is received of a reply at most
inline constexpr uint32_t kLengthExcess = 32;
}  // namespace calibration_reply

inline constexpr uint32_t CALIB_REPLY_MAGIC = 0x5A5A5A5A;

}  // namespace tevoro::lidar
