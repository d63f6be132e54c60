// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mcap/sink.h"

namespace orva::mcap {

/// CRC-32 as zip files have it. `crc`: that of the bytes before.
std::uint32_t Crc32(Bytes bytes, std::uint32_t crc = 0);

/// The checksum of two runs of bytes, one after the other, from theirs: a chunk's bytes are summed up once,
/// although they count in the chunk's checksum and in the file's.
std::uint32_t JoinCrc(std::uint32_t first, std::uint32_t second, std::uint64_t second_size);

}  // namespace orva::mcap
