// SPDX-License-Identifier: Apache-2.0
#include "formats/frame_export.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <sstream>
#include <utility>

#include "formats/cloud_files.h"
#include "shared/failure.h"

namespace orva {
namespace {

struct Format {
  const char* name;
  void (*write)(const Cloud&, OutputFile&);
};
constexpr std::array<Format, 3> kFormats = {{{"pcd", WritePcd}, {"ply", WritePly}, {"csv", WriteCsv}}};

const Format* Find(const std::string& name) {
  const auto found =
      std::find_if(kFormats.begin(), kFormats.end(), [&name](const Format& f) { return name == f.name; });
  return found == kFormats.end() ? nullptr : &*found;
}

}  // namespace

FrameExport::FrameExport(std::filesystem::path folder, const std::string& formats, bool valid_only)
    : folder_(std::move(folder)), valid_only_(valid_only) {
  std::istringstream list(formats);
  for (std::string name; std::getline(list, name, ',');) {
    if (Find(name) == nullptr) {
      throw WrongUsage("there is no format '" + name +
                       "'. Known are pcd, ply and csv, as in --format pcd,ply");
    }
    formats_.push_back(name);
  }
  if (formats_.empty()) {
    throw WrongUsage("the list of formats is empty. Write one, as in --format pcd,ply,csv");
  }
}

void FrameExport::Open() const {
  MakeFolder(folder_);
}

void FrameExport::Write(const Cloud& cloud, const std::string& name) {
  Cloud valid;
  if (valid_only_) {
    std::copy_if(cloud.points.begin(), cloud.points.end(), std::back_inserter(valid.points), IsValid);
  }
  const Cloud& chosen = valid_only_ ? valid : cloud;
  if (chosen.points.empty()) {
    return;
  }
  for (const std::string& format : formats_) {
    OutputFile file(folder_ / (name + "." + format));
    Find(format)->write(chosen, file);
    file.Commit();
    ++files_;
  }
}

std::string FrameName(int frame) {
  const std::string number = std::to_string(frame);
  return "frame_" + std::string(number.size() < 4 ? 4 - number.size() : 0, '0') + number;
}

}  // namespace orva
