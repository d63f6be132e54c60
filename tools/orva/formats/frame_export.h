// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_FRAME_EXPORT_H_
#define ORVA_TOOLS_FORMATS_FRAME_EXPORT_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "formats/cloud_format.h"
#include "formats/cloud_shape.h"

namespace CLI {
class App;
}

namespace orva {

/// What replay and live are told about the files that they write.
struct ExportOptions {
  std::string folder;  ///< empty: no files. With one format of a file for all frames also that file
  std::string formats = "pcd";
  ShapeOptions shape;
  Existing existing = Existing::kKeep;
  McapOptions mcap;
};

/// Adds --out, --format, --force, those of the clouds' shape and those of single formats. `options` must
/// outlive the parsing.
void AddExportOptions(CLI::App& command, ExportOptions& options);
/// --force alone, for commands that write other files.
void AddForceOption(CLI::App& command, Existing& existing);

/// Stores clouds in one folder, in all the formats that were asked for.
class FrameExport {
 public:
  /// `param`: where the frames will come from. Throws WrongUsage for an unknown format.
  FrameExport(const ExportOptions& options, const DriverParam& param);

  /// Has a file a place for IMU samples?
  bool takes_imu() const { return wanted() && !streams_.empty(); }
  bool wanted() const { return !options_.folder.empty(); }
  /// Creates the folder and its parents. Throws Failure where it holds one of the files already that these
  /// frames give, with none given any frame's file, and --force was not said. Does nothing where no files are
  /// wanted, as all that follows.
  void Open(std::span<const int> frames = {});
  /// Writes nothing for an empty cloud. A file for one frame appears complete or not at all.
  void Write(const Cloud& cloud, const FrameInfo& info);
  void WriteImu(const ImuMsg& sample, double received);
  void WriteStatus(const DriverStatistics& statistics, double now);
  /// Completes the files that hold all frames.
  void Commit();

  std::uint64_t files() const { return files_; }
  std::uint64_t bytes() const { return bytes_; }  ///< of the complete files
  /// What was written, for the person: "20 files are in clouds/".
  std::string Summary() const;

 private:
  struct Stream {
    const CloudFormat* format;
    std::unique_ptr<CloudStream> file;
  };

  void WriteFrameFiles(const Cloud& cloud, FrameInfo info);
  std::filesystem::path StreamPath(const CloudFormat& format) const;
  void Count(const std::filesystem::path& file);

  ExportOptions options_;
  DriverParam param_;
  CloudShape shape_;
  std::vector<const CloudFormat*> frame_formats_;
  std::vector<Stream> streams_;
  std::uint64_t files_ = 0;
  std::uint64_t bytes_ = 0;
};

/// "frame_0007".
std::string FrameName(int frame);

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_FRAME_EXPORT_H_
