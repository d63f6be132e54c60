// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_CLOUD_SHAPE_H_
#define ORVA_TOOLS_FORMATS_CLOUD_SHAPE_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "formats/cloud_format.h"
#include "messages/from_driver.h"
#include "shared/cloud.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace orva {

/// How people want their clouds.
struct ShapeOptions {
  /// What becomes of points without a return. Unsaid: NaN in MCAP and in clouds with rows, else the origin.
  std::optional<messages::InvalidPoints> invalid{};
  bool organized = false;
  bool capture_stamp = false;  ///< the time of the capture where the sensor gives none
};

/// Adds --invalid, --valid-only, --organized and --stamp.
void AddShapeOptions(CLI::App& command, CLI::Option* out, ShapeOptions& options);

/// Brings clouds into the shape that was asked for.
class CloudShape {
 public:
  /// Throws WrongUsage for rows out of which points are left.
  explicit CloudShape(const ShapeOptions& options);

  /// The cloud for formats that know of no points without a return, valid until the next call; sets
  /// `info.row_length`. An incomplete frame has no rows, and is counted.
  const Cloud& ForFiles(const Cloud& cloud, FrameInfo& info);
  /// For formats that do: only times are set.
  const Cloud& ForStreams(const Cloud& cloud, const FrameInfo& info);
  messages::InvalidPoints InvalidForStreams() const;

  std::uint64_t without_rows() const { return without_rows_; }

 private:
  const ShapeOptions options_;
  Cloud for_files_;
  Cloud for_streams_;
  std::uint64_t without_rows_ = 0;
};

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_CLOUD_SHAPE_H_
