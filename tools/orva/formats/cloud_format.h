// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_CLOUD_FORMAT_H_
#define ORVA_TOOLS_FORMATS_CLOUD_FORMAT_H_

#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "formats/mcap_options.h"
#include "formats/output_file.h"
#include "shared/cloud.h"

namespace orva {

/// What a file may tell about a frame beside its points.
struct FrameInfo {
  LidarType model = static_cast<LidarType>(0);
  int number = 0;              ///< in the recording, or counted from the start of a live run
  int part = 0;                ///< above 0: a further cloud of the same frame
  double first_packet = 0.0;   ///< when the frame's first packet was received, seconds since the epoch
  double last_packet = 0.0;    ///< likewise
  std::size_t row_length = 0;  ///< points of a row, where the cloud is to have rows; it is then whole
  bool uncalibrated = false;   ///< the model needs calibration and had none: all points lie straight ahead
};

/// A file that holds all frames of a run, and its IMU samples where the format has a place for them. All
/// operations throw Failure. Without Commit nothing is left of the file, or what a reader of the format takes
/// for an unfinished one.
class CloudStream {
 public:
  virtual ~CloudStream() = default;
  virtual void Write(const Cloud& cloud, const FrameInfo& info) = 0;
  /// `received`: when its packet was, seconds since the epoch.
  virtual void WriteImu(const ImuMsg&, double /*received*/) {}
  /// Called often, for formats that keep the driver's counts over time.
  virtual void WriteStatus(const DriverStatistics&, double /*now*/) {}
  virtual void Commit() = 0;
};

/// What a stream may be told beside its frames.
struct StreamOptions {
  Existing existing = Existing::kKeep;
  DriverParam param;  ///< where the frames come from
  McapOptions mcap;
};

/// A format that --format takes. `write` or `open` is set.
struct CloudFormat {
  const char* name;   ///< in --format, and the extension of its files
  const char* title;  ///< for the help
  /// A file has no place for a remark, so its name says that its points are uncalibrated.
  bool remarks_in_name = false;
  /// One file for each frame: FOLDER/frame_0007.pcd.
  void (*write)(const Cloud& cloud, const FrameInfo& info, OutputFile& file) = nullptr;
  /// One file for all frames: FOLDER/frames.NAME.
  std::unique_ptr<CloudStream> (*open)(const std::filesystem::path& path,
                                       const StreamOptions& options) = nullptr;
};

/// Every format. Its source file defines it as k...Format; the line here is all that the program needs to
/// know of it.
#define ORVA_CLOUD_FORMATS(FORMAT) \
  FORMAT(Pcd)                      \
  FORMAT(Ply)                      \
  FORMAT(Csv)                      \
  FORMAT(Mcap)

#define ORVA_DECLARE(Name) extern const CloudFormat k##Name##Format;
ORVA_CLOUD_FORMATS(ORVA_DECLARE)
#undef ORVA_DECLARE

std::span<const CloudFormat* const> CloudFormats();
/// "pcd, ply and csv", or with another word before the last.
std::string FormatNames(const char* between, const char* last);

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_CLOUD_FORMAT_H_
