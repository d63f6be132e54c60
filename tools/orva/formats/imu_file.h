// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_IMU_FILE_H_
#define ORVA_TOOLS_FORMATS_IMU_FILE_H_

#include <filesystem>

#include "formats/output_file.h"
#include "orva_driver.h"

namespace orva {

/// IMU samples as CSV with a header line: seconds since the epoch, radians per second, metres per second
/// squared. Nobody can measure again: every line reaches the system at once, and stays when the run fails.
class ImuFile {
 public:
  ImuFile(const std::filesystem::path& path, Existing existing);
  void Write(const ImuMsg& sample);
  void Commit() { file_.Commit(); }

 private:
  OutputFile file_;
};

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_IMU_FILE_H_
