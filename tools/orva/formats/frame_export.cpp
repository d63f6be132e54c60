// SPDX-License-Identifier: Apache-2.0
#include "formats/frame_export.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <system_error>

#include "shared/failure.h"
#include "shared/words.h"

namespace orva {
namespace {

namespace fs = std::filesystem;

const CloudFormat& Find(const std::string& name) {
  const auto all = CloudFormats();
  const auto found = std::find_if(all.begin(), all.end(),
                                  [&name](const CloudFormat* format) { return name == format->name; });
  if (found == all.end()) {
    throw WrongUsage("there is no format '" + name + "'. Known are " + FormatNames(", ", " and ") +
                     ", as in --format pcd,ply");
  }
  return **found;
}

std::string FileName(const FrameInfo& info, const CloudFormat& format) {
  const std::string part = info.part == 0 ? "" : "_" + std::to_string(info.part);
  const std::string remark = info.uncalibrated && format.remarks_in_name ? "_uncalibrated" : "";
  return FrameName(info.number) + part + remark + "." + format.name;
}

/// A file that a run over all frames would write: frame_ and a number, of this format.
bool IsFrameFile(const fs::path& path, const CloudFormat& format) {
  const std::string name = path.filename().string();
  return name.rfind("frame_", 0) == 0 && path.extension() == std::string(".") + format.name;
}

}  // namespace

FrameExport::FrameExport(const ExportOptions& options, const DriverParam& param)
    : options_(options), param_(param), shape_(options.shape) {
  std::istringstream list(options.formats);
  for (std::string name; std::getline(list, name, ',');) {
    const CloudFormat& format = Find(name);
    if (format.open != nullptr) {
      streams_.push_back({&format, nullptr});
    } else {
      frame_formats_.push_back(&format);
    }
  }
  const bool has_rows = std::any_of(frame_formats_.begin(), frame_formats_.end(),
                                    [](const CloudFormat* format) { return format == &kPcdFormat; });
  if (options.shape.organized && !has_rows) {
    throw WrongUsage("--organized is for PCD files, --format pcd; MCAP clouds have rows without it");
  }
  if (streams_.empty() && frame_formats_.empty()) {
    throw WrongUsage("the list of formats is empty. Write one, as in --format " + FormatNames(",", ","));
  }
}

void FrameExport::Open(std::span<const int> frames) {
  if (!wanted()) {
    return;
  }
  const fs::path folder = options_.folder;
  if (frame_formats_.empty() && StreamPath(*streams_.front().format) == folder) {
    if (folder.has_parent_path()) {
      MakeFolder(folder.parent_path());
    }
  } else {
    MakeFolder(folder);
  }
  for (const CloudFormat* format : frame_formats_) {
    for (const int frame : frames) {
      for (const bool uncalibrated : {false, true}) {
        RefuseExisting(folder / FileName({.number = frame, .uncalibrated = uncalibrated}, *format),
                       options_.existing);
      }
    }
    if (frames.empty()) {
      std::error_code ignored;
      for (const auto& entry : fs::directory_iterator(folder, ignored)) {
        if (IsFrameFile(entry.path(), *format)) {
          RefuseExisting(entry.path(), options_.existing);
        }
      }
    }
  }
  for (Stream& stream : streams_) {
    StreamOptions stream_options = {options_.existing, param_, options_.mcap};
    stream_options.mcap.cloud.invalid = shape_.InvalidForStreams();
    stream.file = stream.format->open(StreamPath(*stream.format), stream_options);
  }
}

/// FOLDER/frames.NAME, or what --out names where it names the one file: street.mcap.
fs::path FrameExport::StreamPath(const CloudFormat& format) const {
  const fs::path folder = options_.folder;
  const std::string extension = std::string(".") + format.name;
  const bool is_file = frame_formats_.empty() && streams_.size() == 1 && folder.extension() == extension;
  return is_file ? folder : folder / ("frames" + extension);
}

void FrameExport::Write(const Cloud& cloud, const FrameInfo& info) {
  if (!wanted()) {
    return;
  }
  if (!frame_formats_.empty()) {
    WriteFrameFiles(cloud, info);
  }
  for (const Stream& stream : streams_) {
    if (CountValid(cloud) > 0 ||
        (!cloud.points.empty() && shape_.InvalidForStreams() != messages::InvalidPoints::kDrop)) {
      stream.file->Write(shape_.ForStreams(cloud, info), info);
    }
  }
}

void FrameExport::WriteFrameFiles(const Cloud& cloud, FrameInfo info) {
  const Cloud& shaped = shape_.ForFiles(cloud, info);
  if (shaped.points.empty()) {
    return;
  }
  for (const CloudFormat* format : frame_formats_) {
    const fs::path path = fs::path(options_.folder) / FileName(info, *format);
    OutputFile file(path, options_.existing);
    format->write(shaped, info, file);
    file.Commit();
    Count(path);
  }
}

void FrameExport::WriteImu(const ImuMsg& sample, double received) {
  for (const Stream& stream : streams_) {
    if (stream.file != nullptr) {
      stream.file->WriteImu(sample, received);
    }
  }
}

void FrameExport::WriteStatus(const DriverStatistics& statistics, double now) {
  for (const Stream& stream : streams_) {
    if (stream.file != nullptr) {
      stream.file->WriteStatus(statistics, now);
    }
  }
}

void FrameExport::Commit() {
  for (Stream& stream : streams_) {
    if (stream.file != nullptr) {
      stream.file->Commit();
      stream.file.reset();
      Count(StreamPath(*stream.format));
    }
  }
}

void FrameExport::Count(const fs::path& file) {
  std::error_code gone;
  const std::uintmax_t size = fs::file_size(file, gone);
  bytes_ += gone ? 0 : size;
  ++files_;
}

std::string FrameExport::Summary() const {
  if (!streams_.empty() && StreamPath(*streams_.front().format) == fs::path(options_.folder)) {
    return "the frames are in " + options_.folder;
  }
  std::string summary = Counted(files_, "file is", "files are") + " in " + options_.folder;
  if (shape_.without_rows() > 0) {
    summary +=
        "; " + Counted(shape_.without_rows(), "incomplete frame has", "incomplete frames have") + " no rows";
  }
  return summary;
}

std::string FrameName(int frame) {
  const std::string number = std::to_string(frame);
  return "frame_" + std::string(number.size() < 4 ? 4 - number.size() : 0, '0') + number;
}

void AddForceOption(CLI::App& command, Existing& existing) {
  command.add_flag_callback(
      "--force", [&existing] { existing = Existing::kReplace; }, "Replace files that exist");
}

void AddExportOptions(CLI::App& command, ExportOptions& options) {
  CLI::Option* out =
      command.add_option("--out,--export", options.folder, "Folder or FILE.mcap; without it: no files")
          ->type_name("DIR");
  CLI::Option* format = command.add_option("--format", options.formats,
                                           "Formats of the clouds, one or several with commas between them");
  format->capture_default_str()->needs(out)->type_name(FormatNames("|", "|"));
  AddShapeOptions(command, out, options.shape);
  AddForceOption(command, options.existing);
  AddMcapOptions(command, format, options.mcap);
}

}  // namespace orva
