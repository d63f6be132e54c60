// SPDX-License-Identifier: Apache-2.0
#include "formats/cloud_format.h"
#include "formats/csv_line.h"

namespace orva {
namespace {

void Write(const Cloud& cloud, const FrameInfo&, OutputFile& file) {
  file.Write("x,y,z,intensity,label,timestamp\n");
  for (const PointTime& point : cloud.points) {
    file.Write(CsvLine(point.x, point.y, point.z, point.intensity, point.label, point.timestamp));
  }
}

}  // namespace

// A comment line before the names of the columns would stop most readers.
const CloudFormat kCsvFormat = {
    .name = "csv", .title = "text, floats read back exactly", .remarks_in_name = true, .write = Write};

}  // namespace orva
