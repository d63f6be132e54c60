// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace orva::test {

/// How often a line stands in a text.
inline int Occurrences(const std::string& text, const std::string& line) {
  int count = 0;
  for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + line.size())) ++count;
  return count;
}

/// Everything that reaches standard output (or another descriptor) while the object lives.
class ConsoleCapture {
 public:
  explicit ConsoleCapture(int descriptor = STDOUT_FILENO)
      : descriptor_(descriptor), file_(memfd_create("console", 0)) {
    std::fflush(nullptr);
    saved_ = dup(descriptor_);
    dup2(file_, descriptor_);
  }
  ~ConsoleCapture() {
    std::fflush(nullptr);
    dup2(saved_, descriptor_);
    // A failed test's own message went the same way.
    if (testing::Test::HasFailure()) std::fputs(Text().c_str(), stderr);
    close(saved_);
    close(file_);
  }
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  std::string Text() const {
    std::string text;
    char piece[4096];
    ssize_t count = 0;
    while ((count = pread(file_, piece, sizeof(piece), static_cast<off_t>(text.size()))) > 0) {
      text.append(piece, static_cast<size_t>(count));
    }
    return text;
  }

 private:
  int descriptor_;
  int file_;
  int saved_ = -1;
};

}  // namespace orva::test
