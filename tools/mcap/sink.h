// SPDX-License-Identifier: Apache-2.0
//
// Where an MCAP file goes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace orva::mcap {

using Bytes = std::span<const std::uint8_t>;

/// How a call went. The first failure stays: all later calls give it again and write nothing.
struct Status {
  std::string text;  ///< what went wrong, in words; empty: nothing did
  bool ok() const { return text.empty(); }
};

/// Where a file goes. One call at a time, from any of the writer's threads.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual Status Write(Bytes bytes) = 0;   ///< appends all of them
  virtual Status End() = 0;                ///< nothing follows
  virtual std::uint64_t size() const = 0;  ///< bytes appended so far
};

/// A file, created or emptied. That it cannot be opened is told by the first Write. One that took no byte is
/// removed.
class FileSink : public Sink {
 public:
  explicit FileSink(const std::string& path);
  ~FileSink() override;
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;
  Status Write(Bytes bytes) override;
  Status End() override;
  std::uint64_t size() const override { return size_; }

 private:
  const std::string path_;
  int file_;
  int open_error_ = 0;
  std::uint64_t size_ = 0;
};

class MemorySink : public Sink {
 public:
  Status Write(Bytes bytes) override;
  Status End() override { return {}; }
  std::uint64_t size() const override { return bytes_.size(); }
  const std::vector<std::uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace orva::mcap
