// SPDX-License-Identifier: Apache-2.0
#include <string>

#include "formats/cloud_format.h"
#include "formats/file_point.h"

namespace orva {
namespace {

constexpr const char* kUncalibratedLine = "# uncalibrated\n";  // ReadPcd looks for it

void Write(const Cloud& cloud, const FrameInfo& info, OutputFile& file) {
  const std::size_t height = info.row_length == 0 ? 1 : cloud.points.size() / info.row_length;
  const std::string count = std::to_string(cloud.points.size());
  file.Write(std::string("# .PCD v0.7 - Point Cloud Data file format\n") +
             (info.uncalibrated ? kUncalibratedLine : "") +
             "VERSION 0.7\n"
             "FIELDS x y z intensity label timestamp\n"
             "SIZE 4 4 4 4 4 8\n"
             "TYPE F F F F U F\n"
             "COUNT 1 1 1 1 1 1\n"
             "WIDTH " +
             std::to_string(cloud.points.size() / height) +
             "\n"
             "HEIGHT " +
             std::to_string(height) +
             "\n"
             "VIEWPOINT 0 0 0 1 0 0 0\n"
             "POINTS " +
             count +
             "\n"
             "DATA binary\n");
  WritePoints(cloud, file);
}

}  // namespace

const CloudFormat kPcdFormat = {.name = "pcd", .title = "Point Cloud Data 0.7, binary", .write = Write};

}  // namespace orva
