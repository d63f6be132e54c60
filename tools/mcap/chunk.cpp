// SPDX-License-Identifier: Apache-2.0
#include "mcap/chunk.h"

#include "mcap/crc.h"

namespace orva::mcap {

void Seal(Chunk& chunk, Compressor* compressor) {
  chunk.records_crc = Crc32(chunk.records);
  chunk.stored_crc = chunk.records_crc;
  chunk.compression = "";
  if (compressor != nullptr && compressor->Compress(chunk.records, chunk.packed)) {
    chunk.compression = compressor->name();
    chunk.stored_crc = Crc32(chunk.packed);
  }
}

}  // namespace orva::mcap
