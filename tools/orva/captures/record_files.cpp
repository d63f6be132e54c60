// SPDX-License-Identifier: Apache-2.0
#include "captures/record_files.h"

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

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

}  // namespace

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
  const bool rotates = limits_.megabytes > 0.0 || limits_.seconds > 0.0;
  names_.push_back(rotates ? Numbered(path_, opened_) : path_);
  ++opened_;
  first_packet_.reset();
  // Room for the new file first: a disk that holds the files kept must do.
  if (limits_.kept > 0 && names_.size() > limits_.kept) {
    std::error_code ignored;
    fs::remove(names_.front(), ignored);
    names_.pop_front();
  }
  writer_.emplace(names_.back(), capture_);
}

}  // namespace orva
