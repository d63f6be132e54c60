// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_FRAME_EXPORT_H_
#define ORVA_TOOLS_FORMATS_FRAME_EXPORT_H_

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "formats/cloud_format.h"

namespace CLI {
class App;
}

namespace orva {

/// What replay and live are told about the files that they write.
struct ExportOptions {
  std::string folder;  ///< empty: no files
  std::string formats = "pcd";
  bool valid_only = false;
  Existing existing = Existing::kKeep;
};

/// Adds --out, --format, --valid-only and --force. `options` must outlive the parsing.
void AddExportOptions(CLI::App& command, ExportOptions& options);
/// --force alone, for commands that write other files.
void AddForceOption(CLI::App& command, Existing& existing);

/// Stores clouds in one folder, in all the formats that were asked for.
class FrameExport {
 public:
  /// Throws WrongUsage for an unknown format.
  explicit FrameExport(const ExportOptions& options);

  /// Has a file a place for IMU samples?
  bool takes_imu() const { return wanted() && !streams_.empty(); }
  bool wanted() const { return !options_.folder.empty(); }
  /// Creates the folder and its parents. Throws Failure where it holds one of the files already that these
  /// frames give, with none given any frame's file, and --force was not said. Does nothing where no files are
  /// wanted, as all that follows.
  void Open(std::span<const int> frames = {});
  /// Writes nothing for an empty cloud. A file for one frame appears complete or not at all.
  void Write(const Cloud& cloud, const FrameInfo& info);
  void WriteImu(const ImuMsg& sample);
  /// Completes the files that hold all frames.
  void Commit();

  int files() const { return files_; }

 private:
  struct Stream {
    const CloudFormat* format;
    std::unique_ptr<CloudStream> file;
  };

  ExportOptions options_;
  std::vector<const CloudFormat*> frame_formats_;
  std::vector<Stream> streams_;
  int files_ = 0;
};

/// "frame_0007".
std::string FrameName(int frame);

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_FRAME_EXPORT_H_
