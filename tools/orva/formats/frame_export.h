// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_FRAME_EXPORT_H_
#define ORVA_TOOLS_FORMATS_FRAME_EXPORT_H_

#include <filesystem>
#include <string>
#include <vector>

#include "shared/cloud.h"

namespace orva {

/// Stores clouds as files NAME.FORMAT in one folder.
class FrameExport {
 public:
  /// `formats` is a list such as "pcd,ply,csv". Throws WrongUsage for an unknown one.
  FrameExport(std::filesystem::path folder, const std::string& formats, bool valid_only);

  /// Creates the folder and its parents. Throws Failure, as does Write.
  void Open() const;
  /// Writes nothing for an empty cloud. Each file appears complete or not at all.
  void Write(const Cloud& cloud, const std::string& name);

  int files() const { return files_; }

 private:
  std::filesystem::path folder_;
  std::vector<std::string> formats_;
  bool valid_only_;
  int files_ = 0;
};

/// "frame_0007".
std::string FrameName(int frame);

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_FRAME_EXPORT_H_
