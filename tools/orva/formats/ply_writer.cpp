// SPDX-License-Identifier: Apache-2.0
#include <string>

#include "formats/cloud_format.h"
#include "formats/file_point.h"

namespace orva {
namespace {

void Write(const Cloud& cloud, const FrameInfo& info, OutputFile& file) {
  file.Write(std::string("ply\n"
                         "format binary_little_endian 1.0\n") +
             (info.uncalibrated ? "comment uncalibrated\n" : "") +
             "comment metres, x forward, y left, z up; timestamp in seconds since 1970-01-01 UTC\n"
             "element vertex " +
             std::to_string(cloud.points.size()) +
             "\n"
             "property float x\n"
             "property float y\n"
             "property float z\n"
             "property float intensity\n"
             "property uint label\n"
             "property double timestamp\n"
             "end_header\n");
  WritePoints(cloud, file);
}

}  // namespace

const CloudFormat kPlyFormat = {.name = "ply", .title = "polygon file, binary", .write = Write};

}  // namespace orva
