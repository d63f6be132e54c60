// SPDX-License-Identifier: Apache-2.0
#include "formats/cloud_format.h"
#include "shared/failure.h"

// In place of mcap_writer.cpp where the compressors were not there when the program was built.
namespace orva {
namespace {

std::unique_ptr<CloudStream> Open(const std::filesystem::path&, const StreamOptions&) {
  throw WrongUsage("this orva was built without zstd and lz4, so it writes no MCAP files.");
}

}  // namespace

const CloudFormat kMcapFormat = {.name = "mcap", .title = "not in this build", .open = Open};

}  // namespace orva
