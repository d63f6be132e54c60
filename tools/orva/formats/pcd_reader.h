// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_PCD_READER_H_
#define ORVA_TOOLS_FORMATS_PCD_READER_H_

#include <filesystem>

#include "shared/cloud.h"

namespace orva {

struct PcdFile {
  Cloud cloud;
  bool uncalibrated = false;  ///< the file says so of its points
};

/// Reads what the pcd format writes; other uncompressed binary PCD files with these fields pass too. Throws
/// Failure.
PcdFile ReadPcd(const std::filesystem::path& path);

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_PCD_READER_H_
