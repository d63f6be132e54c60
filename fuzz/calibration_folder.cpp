// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
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

void Fill(int file, std::string_view text) {
  ORVA_EXPECT(ftruncate(file, 0) == 0 && pwrite(file, text.data(), text.size(), 0) == ssize(text));
}

void Folder(LidarType model, std::string_view texts) {
  static Files files;
  static tevoro::lidar::ParamService service;
  const size_t size = texts.size();
  for (const int file : files.descriptors) {
    const size_t end = std::min(texts.find('\f'), texts.size());
    Fill(file, texts.substr(0, end));
    texts.remove_prefix(std::min(end + 1, texts.size()));
  }
  const bool loaded = service.LoadCheckFolder(model, files.folder.Path());
  ORVA_EXPECT(!loaded || size >= 2 * tevoro::lidar::CALIB_TABLE_ENTRIES);  // too short for the tables
}

/// How many fields of the text are asked for, by its commas and line ends alone.
size_t Fields(std::string_view text, size_t start, size_t step) {
  size_t fields = 0;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const bool open = !line.empty() && line.back() != ',';
    const size_t columns = static_cast<size_t>(std::count(line.begin(), line.end(), ',')) + (open ? 1 : 0);
    if (columns > start) fields += (columns - start + step - 1) / step;
  }
  return fields;
}

void File(uint8_t way, std::string_view text) {
  static const int file = memfd_create("calibration", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  const size_t start = way / 2 % 4;
  const size_t step = way / 8 % 4 + 1;
  const size_t most = way / 32 == 7 ? SIZE_MAX : way / 32;
  Fill(file, text);
  std::vector<float> values;
  const size_t found = tevoro::lidar::LoadFile(path, values, start, step, most);
  ORVA_EXPECT(found == Fields(text, start, step) && values.size() == std::min(found, most));
}

}  // namespace

void CalibrationFolder(const uint8_t* data, size_t size) {
  if (size == 0) return;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] % 2 == 0) {
    File(data[0], text);
  } else {
    Folder(data[0] % 4 == 1 ? TS4 : TS6, text);
  }
}

}  // namespace orva::fuzz
