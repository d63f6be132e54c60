// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orva::test {

/// The orva program as a child process. Its standard error is read, its standard output dropped.
class ToolProcess {
 public:
  struct Limits {
    uint64_t largest_file = 0;  ///< bytes; writing more fails as on a full disk. 0: no limit
  };

  explicit ToolProcess(const std::vector<std::string>& arguments) : ToolProcess(arguments, Limits{}) {}
  ToolProcess(const std::vector<std::string>& arguments, const Limits& limits);
  ~ToolProcess();
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  /// Reads on until standard error holds the text; false when it ends first.
  bool WaitForError(const std::string& text);
  void Signal(int number);
  /// Whether it has ended already.
  bool HasEnded();
  /// Waits for the end. Returns the exit code, or 128 + the signal that ended it.
  int Wait();

  const std::string& errors() const { return errors_; }

 private:
  bool ReadMore();

  pid_t pid_ = -1;
  int errors_fd_ = -1;
  std::string errors_;
  std::optional<int> exit_code_;
};

}  // namespace orva::test
