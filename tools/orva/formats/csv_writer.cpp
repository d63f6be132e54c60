// SPDX-License-Identifier: Apache-2.0
#include "formats/cloud_files.h"
#include "formats/csv_line.h"

namespace orva {

void WriteCsv(const Cloud& cloud, OutputFile& file) {
  file.Write("x,y,z,intensity,label,timestamp\n");
  for (const PointTime& point : cloud.points) {
    file.Write(CsvLine(point.x, point.y, point.z, point.intensity, point.label, point.timestamp));
  }
}

}  // namespace orva
