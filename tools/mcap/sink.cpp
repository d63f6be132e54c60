// SPDX-License-Identifier: Apache-2.0
#include "mcap/sink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

namespace orva::mcap {
namespace {

Status SystemStatus(int error) {
  return {std::generic_category().message(error)};
}

/// Names that a regular file has; nothing for a pipe or a device.
std::optional<nlink_t> Names(int file) {
  struct stat about = {};
  const bool regular = fstat(file, &about) == 0 && S_ISREG(about.st_mode);
  return regular ? std::optional(about.st_nlink) : std::nullopt;
}

/// A file that was removed goes on taking what is written, for nobody.
bool IsRemoved(int file) {
  return Names(file) == nlink_t{0};
}

}  // namespace

FileSink::FileSink(const std::string& path)
    : path_(path), file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
  open_error_ = file_ < 0 ? errno : 0;
}

FileSink::~FileSink() {
  End();
}

Status FileSink::Write(Bytes bytes) {
  if (file_ < 0) {
    return SystemStatus(open_error_ != 0 ? open_error_ : EBADF);
  }
  if (IsRemoved(file_)) {
    return SystemStatus(ENOENT);
  }
  while (!bytes.empty()) {
    const ssize_t written = ::write(file_, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return SystemStatus(errno);
    }
    if (written > 0) {
      size_ += static_cast<std::uint64_t>(written);
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
  }
  return {};
}

Status FileSink::End() {
  const int file = std::exchange(file_, -1);
  if (file < 0) {
    return {};
  }
  const std::optional<nlink_t> names = Names(file);
  if (size_ == 0 && names.value_or(0) > 0) {
    ::unlink(path_.c_str());
  }
  if (::close(file) != 0) {
    return SystemStatus(errno);
  }
  return names == nlink_t{0} ? SystemStatus(ENOENT) : Status{};
}

Status MemorySink::Write(Bytes bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return {};
}

}  // namespace orva::mcap
