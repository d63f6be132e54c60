// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include <string_view>
#include <vector>

#include "expect.h"
#include "param/calibration_folder.h"
#include "param/param_service.h"
#include "support/temp_folder.h"
#include "targets.h"

namespace orva::fuzz {

namespace {

/// The four files, kept open: making them anew takes most of the time.
struct Files {
  Files() {
    for (const char* name : {"azimuth.csv", "elevation.csv", "weight.csv", "near_filter.csv"}) {
      descriptors.push_back(open(folder.Path(name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    }
  }
  const test::TempFolder folder{"/dev/shm"};
  std::vector<int> descriptors;
};

}  // namespace

void CalibrationFolder(const uint8_t* data, size_t size) {
  static Files files;
  static tevoro::lidar::ParamService service;
  const test::TempFolder& folder = files.folder;
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  for (const int file : files.descriptors) {
    const size_t end = std::min(rest.find('\f'), rest.size());
    ORVA_EXPECT(ftruncate(file, 0) == 0 && pwrite(file, rest.data(), end, 0) == static_cast<ssize_t>(end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  for (const LidarType model : {TS4, TS6}) {
    const bool loaded = service.LoadCheckFolder(model, folder.Path());
    ORVA_EXPECT(!loaded || size >= 2 * tevoro::lidar::CALIB_TABLE_ENTRIES);  // too short for the tables
  }
  std::vector<float> every, second;
  tevoro::lidar::LoadFile(folder.Path("azimuth.csv"), every, 0, 1);
  tevoro::lidar::LoadFile(folder.Path("azimuth.csv"), second, 1, 2);
  ORVA_EXPECT(every.size() <= size && second.size() <= every.size() / 2);
}

}  // namespace orva::fuzz
