// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_CLOUD_FILES_H_
#define ORVA_TOOLS_FORMATS_CLOUD_FILES_H_

#include <filesystem>

#include "formats/output_file.h"
#include "shared/cloud.h"

namespace orva {

// One function per file format, each in a source file of its own. All throw Failure.
//
// PCD and PLY carry x, y, z as 32-bit floats in metres, intensity as a 32-bit float and label as a 32-bit
// unsigned integer (the types that point cloud libraries look for under these names; the values are
// integers), and timestamp as a 64-bit float in seconds since the epoch, 0 where the model gives none.

void WritePcd(const Cloud& cloud, OutputFile& file);  ///< Point Cloud Data 0.7, binary
void WritePly(const Cloud& cloud, OutputFile& file);  ///< Polygon file, binary little-endian
void WriteCsv(const Cloud& cloud, OutputFile& file);  ///< text with a header line; floats read back exactly

/// Reads what WritePcd wrote; other uncompressed binary PCD files with these fields pass too.
Cloud ReadPcd(const std::filesystem::path& path);

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_CLOUD_FILES_H_
