// SPDX-License-Identifier: Apache-2.0
#include "formats/output_file.h"

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "shared/failure.h"

namespace orva {

namespace fs = std::filesystem;

void MakeFolder(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error || !fs::is_directory(folder)) {
    const std::string why = error ? error.message() : "there is a file of that name";
    throw Failure("cannot create the folder " + folder.string() + ": " + why +
                  ". Choose another one with --out.");
  }
}

void RefuseExisting(const fs::path& path, Existing existing) {
  std::error_code ignored;
  const fs::file_status target = fs::status(path, ignored);
  if (fs::is_fifo(target) || fs::is_character_file(target)) {
    return;  // nothing to lose
  }
  if (existing == Existing::kKeep && fs::exists(fs::symlink_status(path, ignored))) {
    throw Failure(path.string() + " exists already. Choose another name, or say --force to replace it.");
  }
}

OutputFile::OutputFile(fs::path path, Existing existing) : path_(std::move(path)), part_(path_) {
  RefuseExisting(path_, existing);
  std::error_code ignored;
  const fs::file_status target = fs::status(path_, ignored);
  if (!fs::exists(target) || fs::is_regular_file(target)) {
    part_ += ".part";
  }
  file_ = std::fopen(part_.c_str(), "wb");
  if (file_ == nullptr) {
    Fail(errno);
  }
}

OutputFile::~OutputFile() {
  if (file_ != nullptr) {
    std::fclose(file_);
  }
  if (done_ || part_ == path_) {
    return;
  }
  std::error_code ignored;
  if (kept_ == 0) {
    fs::remove(part_, ignored);
    return;
  }
  if (fs::file_size(part_, ignored) > kept_) {
    fs::resize_file(part_, kept_, ignored);  // without what did not fit
  }
  fs::rename(part_, path_, ignored);
}

void OutputFile::Write(const void* bytes, std::size_t size) {
  if (std::fwrite(bytes, 1, size, file_) != size) {
    Fail(errno);
  }
  size_ += size;
}

void OutputFile::Keep() {
  if (std::fflush(file_) != 0) {
    Fail(errno);
  }
  kept_ = size_;
}

void OutputFile::Commit() {
  // A full disk shows here at the latest; one that is reached over a network, or has a quota, only here.
  if (std::fclose(std::exchange(file_, nullptr)) != 0) {
    Fail(errno);
  }
  if (part_ != path_ && std::rename(part_.c_str(), path_.c_str()) != 0) {
    Fail(errno);
  }
  done_ = true;
}

void OutputFile::Fail(int error) const {
  const char* remedy = error == ENOSPC || error == EDQUOT ? "Free some space, or write elsewhere with --out."
                                                          : "Choose another place with --out.";
  throw Failure("cannot write " + path_.string() + ": " + std::generic_category().message(error) + ". " +
                remedy);
}

}  // namespace orva
