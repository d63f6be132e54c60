// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <sstream>
#include <string>

#include "expect.h"
#include "formats/pcd_reader.h"
#include "shared/failure.h"
#include "targets.h"

namespace orva::fuzz {

void Pcd(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::istringstream file(bytes);
  PcdFile read;
  try {
    read = ReadPcd(file, "fuzzed.pcd");
  } catch (const Failure& failure) {
    ORVA_EXPECT(std::string(failure.what()).ends_with('.'));
    return;
  }
  // Memory by what the file holds: four floats a point, at least.
  ORVA_EXPECT(read.cloud.points.capacity() * 16 < size);
  ORVA_EXPECT(!read.uncalibrated || bytes.find("# uncalibrated\n") != std::string::npos);
  for (const PointTime& point : read.cloud.points) {
    ORVA_EXPECT(std::fabs(point.x) <= 1e6F && std::fabs(point.y) <= 1e6F && std::fabs(point.z) <= 1e6F);
  }
}

}  // namespace orva::fuzz
