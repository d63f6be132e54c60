// SPDX-License-Identifier: Apache-2.0
#include "captures/record_files.h"

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "shared/failure.h"
#include "shared/terminal.h"

namespace orva {
namespace {

namespace fs = std::filesystem;

constexpr double kRecordOverhead = 16 + 14 + 20 + 8;  ///< of the capture, Ethernet, IPv4 and UDP

std::string Numbered(const std::string& path, std::uint64_t number) {
  char digits[24];
  std::snprintf(digits, sizeof(digits), "_%04llu", static_cast<unsigned long long>(number));
  const fs::path whole(path);
  fs::path name = whole.stem();
  name += digits;
  name += whole.extension();
  return whole.parent_path() / name;
}

/// "drive_0012.pcap" for "drive.pcap".
bool IsNumbered(const fs::path& file, const fs::path& path) {
  const std::string name = file.stem().string();
  const std::string start = path.stem().string() + "_";
  return file.extension() == path.extension() && name.size() >= start.size() + 4 &&
         name.compare(0, start.size(), start) == 0 &&
         name.find_first_not_of("0123456789", start.size()) == std::string::npos;
}

bool Rotates(const RotationLimits& limits) {
  return limits.megabytes > 0.0 || limits.seconds > 0.0;
}

}  // namespace

void RefuseEarlierFiles(const std::string& path, const RotationLimits& limits, Existing existing) {
  if (!Rotates(limits)) {
    RefuseExisting(path, existing);
    return;
  }
  const fs::path folder = fs::path(path).parent_path();
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder.empty() ? fs::path(".") : folder, ignored)) {
    if (IsNumbered(entry.path(), path)) {
      throw Failure(entry.path().string() +
                    " is of an earlier recording of this name. Choose another name, or move its files away.");
    }
  }
}

RecordFiles::RecordFiles(std::string path, const RotationLimits& limits, const sim::CaptureOptions& capture)
    : path_(std::move(path)), limits_(limits), capture_(capture) {
  Open();
}

void RecordFiles::Write(const sim::TimedPacket& packet) {
  if (Full(packet)) {
    writer_->Finish();
    Open();
  }
  if (!first_packet_) {
    first_packet_ = Clock::now();
  }
  writer_->Write(packet);
  ++packets_;
  payload_bytes_ += packet.payload.size();
}

void RecordFiles::Finish() {
  if (first_packet_) {
    writer_->Finish();
  }
  writer_.reset();
}

bool RecordFiles::Full(const sim::TimedPacket& next) const {
  if (!first_packet_) {
    return false;
  }
  const double size = static_cast<double>(writer_->Size() + next.payload.size()) + kRecordOverhead;
  const std::chrono::duration<double> age = Clock::now() - *first_packet_;
  return (limits_.megabytes > 0.0 && size > limits_.megabytes * 1e6) ||
         (limits_.seconds > 0.0 && age.count() >= limits_.seconds);
}

void RecordFiles::Open() {
  names_.push_back(Rotates(limits_) ? Numbered(path_, opened_) : path_);
  ++opened_;
  first_packet_.reset();
  // Room for the new file first: a disk that holds the files kept must do.
  if (limits_.kept > 0 && names_.size() > limits_.kept) {
    RemoveOldest(names_.size() - limits_.kept);
  }
  writer_.emplace(names_.back(), capture_);
}

/// What cannot be removed is tried again with each further file.
void RecordFiles::RemoveOldest(std::size_t count) {
  std::deque<std::string> stuck;
  for (; count > 0; --count) {
    std::error_code error;
    fs::remove(names_.front(), error);
    if (error) {
      stuck.push_back(names_.front());
      if (!std::exchange(told_stuck_, true)) {
        Warn(names_.front() + " cannot be removed: " + error.message() +
             ". More files are kept than --keep says.");
      }
    }
    names_.pop_front();
  }
  names_.insert(names_.begin(), stuck.begin(), stuck.end());
}

}  // namespace orva
