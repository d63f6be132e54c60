// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_PCD_READER_H_
#define ORVA_TOOLS_FORMATS_PCD_READER_H_

#include <filesystem>
#include <iosfwd>
#include <string>

#include "shared/cloud.h"

namespace orva {

struct PcdFile {
  Cloud cloud;
  bool uncalibrated = false;  ///< the file says so of its points
};

/// Reads what the pcd format writes; other uncompressed binary PCD files with these fields pass too. Takes
/// memory for what the file holds, whatever it says, and at most for 2^24 points. Throws Failure.
PcdFile ReadPcd(const std::filesystem::path& path);
/// The same from a stream that can seek; errors call it `name`.
PcdFile ReadPcd(std::istream& file, const std::string& name);

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_PCD_READER_H_
