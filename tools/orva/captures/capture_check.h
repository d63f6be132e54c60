// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_CAPTURE_CHECK_H_
#define ORVA_TOOLS_CAPTURES_CAPTURE_CHECK_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace orva {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using RecordingFile = std::unique_ptr<std::FILE, CloseFile>;

/// Opens a recording. Throws a Failure that names the reason: missing, a folder, no permission.
RecordingFile OpenRecordingFile(const std::filesystem::path& path);

/// How a file's first bytes say that it is packed.
enum class Packing { kNone, kGzip, kZstd };
Packing PackingOf(const uint8_t* start, size_t size);

/// The driver answers a bad capture file with no more than "false". This finds the usual reasons beforehand
/// (those above, empty, packed, no capture at all) and throws a Failure that names it.
void CheckCapture(const std::filesystem::path& path);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_CAPTURE_CHECK_H_
