// SPDX-License-Identifier: Apache-2.0
#include "formats/imu_file.h"

#include "formats/csv_line.h"

namespace orva {

ImuFile::ImuFile(const std::filesystem::path& path, Existing existing) : file_(path, existing) {
  file_.Write(
      "timestamp,angular_velocity_x,angular_velocity_y,angular_velocity_z,"
      "linear_acceleration_x,linear_acceleration_y,linear_acceleration_z\n");
}

void ImuFile::Write(const ImuMsg& sample) {
  file_.Write(CsvLine(sample.timestamp, sample.angular_velocity_x, sample.angular_velocity_y,
                      sample.angular_velocity_z, sample.linear_acceleration_x, sample.linear_acceleration_y,
                      sample.linear_acceleration_z));
  file_.Keep();
}

}  // namespace orva
