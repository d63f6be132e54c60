// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "mcap/sink.h"

namespace orva::mcap {

enum class Compression { kNone, kLz4, kZstd };

/// One belongs to each thread.
class Compressor {
 public:
  virtual ~Compressor() = default;
  /// False where that failed or made nothing smaller.
  virtual bool Compress(Bytes bytes, std::vector<std::uint8_t>& packed) = 0;
  virtual const char* name() const = 0;
};

/// `level` is that of zstd. None for Compression::kNone.
std::unique_ptr<Compressor> MakeCompressor(Compression compression, int level);

}  // namespace orva::mcap
