// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_MESSAGES_FROM_DRIVER_H_
#define ORVA_TOOLS_MESSAGES_FROM_DRIVER_H_

#include <cstddef>
#include <string>

#include "messages/messages.h"
#include "orva_driver.h"

// What the driver delivers, as messages. One source for files, topics and pages, so that they agree on
// layouts, units and stamps.
namespace orva::messages {

/// How a point lies in PointCloud2::data.
enum class PointLayout {
  kPacked,  ///< 22 bytes: x, y, z, intensity (float32), ring (uint16), time (float32) at 0, 4, 8, 12, 16, 18
  kPcl,     ///< 32 bytes: the same fields at 0, 4, 8, 16, 20, 24, aligned as PCL keeps its points
};

/// What becomes of a measurement without a return inside the limits; the driver keeps it as the exact origin.
enum class InvalidPoints {
  kNan,   ///< its coordinates are NaN, and is_dense is false; intensity, ring and time stay
  kDrop,  ///< it is left out, and is_dense is true; the cloud then has no rows
  kZero,  ///< it stays the origin, and is_dense is true
};

/// Points of each laser line, where each gave the same number in one run: a cloud of whole rows. Else 0.
std::size_t RowLength(const PointCloud<PointTime>& cloud);

struct CloudOptions {
  PointLayout layout = PointLayout::kPacked;
  InvalidPoints invalid = InvalidPoints::kNan;
  /// True: a cloud that is whole has a row for each laser line in the order of measurement. It is whole when
  /// each line gave the same number of points in one run. False, or not whole: height 1.
  bool organized = true;
  std::string frame_id = "lidar";
};

/// Seconds since the epoch as a stamp, to the nanosecond. Zero for what a stamp cannot hold: before 1970,
/// after 2038, NaN.
Time ToTime(double seconds);

/// The time of a cloud in seconds since the epoch: the sensor's own where the cloud has one (NV2: of the
/// packet that ended it; TS6: of its first packet, also where a recording ended inside the frame), else
/// `captured`.
double StampOf(const PointCloud<PointTime>& cloud, double captured);

/// `captured`: when the frame's first packet was received, seconds since the epoch. The field `time` is in
/// seconds relative to the stamp, 0 where the model gives points no time. Overwrites all of `message`, and
/// keeps its memory.
void FillPointCloud2(const PointCloud<PointTime>& cloud, double captured, const CloudOptions& options,
                     PointCloud2& message);

/// The stamp is the sensor's time, or `captured`, as of StampOf, where its clock was never set. Orientation
/// is not measured, so its covariance begins with -1.
Imu ToImu(const ImuMsg& sample, double captured, const std::string& frame_id);

/// What one diagnostic status is about.
struct DiagnosticSource {
  std::string name = "orva: lidar";  ///< program, colon, what it watches: viewers group by it
  std::string hardware_id;           ///< the one sensor, for example "TS4B 192.168.1.200"
};

/// Where the calibration in use comes from: "none", "from the folder", "downloading", "from the sensor".
const char* CalibrationName(CalibrationState state);

/// `before` is the record of the last call, all zero at first, and `seconds` what lies between the two. The
/// level is WARN when packets were lost or refused since then, STALE when none came.
DiagnosticArray ToDiagnostics(const DriverStatistics& now, const DriverStatistics& before, double seconds,
                              Time stamp, const DiagnosticSource& source);

}  // namespace orva::messages

#endif  // ORVA_TOOLS_MESSAGES_FROM_DRIVER_H_
