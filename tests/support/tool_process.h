// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace orva::test {

/// The orva program as a child process. Its standard error is read, its standard output dropped.
class ToolProcess {
 public:
  struct Limits {
    rlim_t largest_file = RLIM_INFINITY;  ///< bytes; writing more fails as on a full disk
  };

  explicit ToolProcess(std::vector<std::string> arguments) : ToolProcess(std::move(arguments), Limits{}) {}
  ToolProcess(std::vector<std::string> arguments, const Limits& limits) {
    arguments.insert(arguments.begin(), "orva");
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    pid_ = fork();
    if (pid_ == 0) {
      dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      signal(SIGXFSZ, SIG_IGN);  // so that the write fails instead
      const rlimit limit = {limits.largest_file, limits.largest_file};
      setrlimit(RLIMIT_FSIZE, &limit);
      execv(ORVA_TOOL, argv.data());
      _exit(127);
    }
    close(ends[1]);
    stream_ = fdopen(ends[0], "r");
  }
  ~ToolProcess() {
    if (!HasEnded()) Signal(SIGKILL);
    Wait();
    std::fclose(stream_);
  }
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  /// Reads on until standard error holds the text; false when it ends first.
  bool WaitForError(const std::string& text) {
    while (errors_.find(text) == std::string::npos) {
      const int next = std::fgetc(stream_);
      if (next == EOF) return false;
      errors_ += static_cast<char>(next);
    }
    return true;
  }
  void Signal(int number) const { kill(pid_, number); }
  bool HasEnded() { return Reap(WNOHANG); }
  /// Waits for the end. Returns the exit code, or 128 + the signal that ended it.
  int Wait() {
    for (int next = 0; (next = std::fgetc(stream_)) != EOF;) errors_ += static_cast<char>(next);
    return Reap(0) ? *exit_code_ : -1;
  }
  const std::string& errors() const { return errors_; }

 private:
  bool Reap(int options) {
    int status = 0;
    if (!exit_code_ && waitpid(pid_, &status, options) == pid_) {
      exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return exit_code_.has_value();
  }

  pid_t pid_ = -1;
  std::FILE* stream_ = nullptr;
  std::string errors_;
  std::optional<int> exit_code_;
};

}  // namespace orva::test
