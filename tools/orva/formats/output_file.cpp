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
  part_ += ".part";
  file_ = std::fopen(part_.c_str(), "wb");
  if (file_ == nullptr) {
    Fail(errno);
  }
}

OutputFile::~OutputFile() {
  if (file_ != nullptr) {
    std::fclose(file_);
    std::error_code ignored;
    fs::remove(part_, ignored);
  }
}

void OutputFile::Write(const void* bytes, std::size_t size) {
  if (std::fwrite(bytes, 1, size, file_) != size) {
    Fail(errno);
  }
}

void OutputFile::Flush() {
  if (std::fflush(file_) != 0) {
    Fail(errno);
  }
}

void OutputFile::Commit() {
  Flush();  // a full disk shows here at the latest, while the destructor still removes the part
  if (std::rename(part_.c_str(), path_.c_str()) != 0) {
    Fail(errno);
  }
  std::fclose(file_);
  file_ = nullptr;
}

void OutputFile::Fail(int error) const {
  const char* remedy = error == ENOSPC || error == EDQUOT ? "Free some space, or write elsewhere with --out."
                                                          : "Choose another place with --out.";
  throw Failure("cannot write " + path_.string() + ": " + std::generic_category().message(error) + ". " +
                remedy);
}

}  // namespace orva
