// SPDX-License-Identifier: Apache-2.0
#include "support/tool_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace orva::test {
namespace {

int ExitCode(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

ToolProcess::ToolProcess(const std::vector<std::string>& arguments, const Limits& limits) {
  std::vector<char*> argv = {const_cast<char*>("orva")};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  std::array<int, 2> ends;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  pid_ = fork();
  if (pid_ == 0) {
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    if (limits.largest_file > 0) {
      signal(SIGXFSZ, SIG_IGN);  // so that the write fails instead
      const rlimit limit = {limits.largest_file, limits.largest_file};
      setrlimit(RLIMIT_FSIZE, &limit);
    }
    execv(ORVA_TOOL, argv.data());
    _exit(127);
  }
  close(ends[1]);
  errors_fd_ = ends[0];
}

ToolProcess::~ToolProcess() {
  if (!exit_code_) {
    kill(pid_, SIGKILL);
    Wait();
  }
  close(errors_fd_);
}

bool ToolProcess::ReadMore() {
  std::array<char, 4096> bytes;
  const ssize_t count = read(errors_fd_, bytes.data(), bytes.size());
  if (count > 0) {
    errors_.append(bytes.data(), static_cast<size_t>(count));
  }
  return count > 0;
}

bool ToolProcess::WaitForError(const std::string& text) {
  while (errors_.find(text) == std::string::npos) {
    if (!ReadMore()) {
      return false;
    }
  }
  return true;
}

void ToolProcess::Signal(int number) {
  kill(pid_, number);
}

bool ToolProcess::HasEnded() {
  int status = 0;
  if (!exit_code_ && waitpid(pid_, &status, WNOHANG) == pid_) {
    exit_code_ = ExitCode(status);
  }
  return exit_code_.has_value();
}

int ToolProcess::Wait() {
  while (ReadMore()) {
  }
  int status = 0;
  if (!exit_code_ && waitpid(pid_, &status, 0) == pid_) {
    exit_code_ = ExitCode(status);
  }
  return exit_code_.value_or(-1);
}

}  // namespace orva::test
