// SPDX-License-Identifier: Apache-2.0
#include "shared/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace orva {
namespace {

thread_local std::string speaker;

bool IsTerminal() {
  static const bool is_terminal = isatty(STDERR_FILENO) == 1;
  return is_terminal;
}

/// A terminal whose cursor goes back to the start of the line.
bool CanRedraw() {
  static const bool can_redraw = [] {
    const char* term = std::getenv("TERM");
    return IsTerminal() && (term == nullptr || std::string_view(term) != "dumb");
  }();
  return can_redraw;
}

bool HasColour() {
  static const bool has_colour = [] {
    const char* no_color = std::getenv("NO_COLOR");
    return CanRedraw() && (no_color == nullptr || *no_color == '\0');
  }();
  return has_colour;
}

Verbosity& Chosen() {
  static Verbosity verbosity = Verbosity::kNormal;
  return verbosity;
}

std::size_t Width() {
  winsize size = {};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 20;
  return known ? size.ws_col : 80;
}

/// Breaks lines at blanks so that none is longer than `width`, where a blank allows it.
std::string Wrap(const std::string& text, std::size_t width) {
  std::string wrapped = text;
  std::size_t line_start = 0;
  std::size_t last_blank = std::string::npos;
  for (std::size_t i = 0; i < wrapped.size(); ++i) {
    if (wrapped[i] == '\n') {
      line_start = i + 1;
      last_blank = std::string::npos;
    } else if (wrapped[i] == ' ') {
      last_blank = i;
    }
    if (i - line_start >= width && i >= line_start && last_blank != std::string::npos) {
      wrapped[last_blank] = '\n';
      line_start = last_blank + 1;
      last_blank = std::string::npos;
    }
  }
  return wrapped;
}

/// `label` is the part of the text that may be coloured.
void Print(const char* escape, const std::string& label, const std::string& text) {
  std::string line = label + (speaker.empty() ? "" : speaker + ": ") + text;
  if (IsTerminal()) {
    line = Wrap(line, std::min<std::size_t>(Width(), 100));
  }
  if (HasColour() && !label.empty()) {
    line = escape + line.substr(0, label.size()) + "\033[0m" + line.substr(label.size());
  }
  line += '\n';
  std::fflush(stdout);  // keeps the order where both streams go to one place
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

void AddVerbosityOptions(CLI::App& command) {
  CLI::Option* quiet = command.add_flag_callback(
      "-q,--quiet", [] { Chosen() = Verbosity::kQuiet; }, "Say nothing but warnings and errors");
  command
      .add_flag_callback(
          "-v,--verbose", [] { Chosen() = Verbosity::kVerbose; }, "Say more, with what the driver says")
      ->excludes(quiet);
}

Verbosity TheVerbosity() {
  return Chosen();
}

void SpeakFor(const std::string& name) {
  speaker = name;
}

void Say(const std::string& text) {
  if (Chosen() != Verbosity::kQuiet) {
    Print("", "", text);
  }
}

void Detail(const std::string& text) {
  if (Chosen() == Verbosity::kVerbose) {
    Print("", "", text);
  }
}

void Warn(const std::string& text) {
  Print("\033[33m", "warning: ", text);
}

void Complain(const std::string& text, const std::string& program) {
  Print("\033[31m", program + ": ", text);
}

Progress::Progress(std::string task, int total) : task_(std::move(task)), total_(total) {
  Draw();
}

Progress::~Progress() {
  Erase();
}

void Progress::Step(int done) {
  done_ = done;
  Draw();
}

void Progress::Line(const std::string& text) {
  if (Chosen() == Verbosity::kQuiet) {
    return;
  }
  Erase();
  std::fprintf(stderr, "%s\n", text.c_str());
  Draw();
}

void Progress::Draw() {
  if (!CanRedraw() || Chosen() == Verbosity::kQuiet) {
    return;
  }
  std::string bar = task_;
  if (total_ > 0) {
    const std::string percent = std::to_string(std::min(100LL, done_ * 100LL / total_));
    const std::string count = std::string(4 - percent.size(), ' ') + percent + " %";
    const std::size_t room = std::min<std::size_t>(Width() - 1, 79);
    const std::size_t used = bar.size() + count.size() + 3;
    if (room > used + 4) {
      const std::size_t cells = room - used;
      const std::size_t full =
          std::min(cells, cells * static_cast<std::size_t>(done_) / static_cast<std::size_t>(total_));
      bar += " [" + std::string(full, '#') + std::string(cells - full, '.') + "]";
    }
    bar += count;
  } else {
    bar += std::string(static_cast<std::size_t>(done_ % 4), '.');
  }
  // Blanks over what was there: works on every terminal, also without escape sequences.
  const std::string rest(drawn_ > bar.size() ? drawn_ - bar.size() : 0, ' ');
  std::fprintf(stderr, "\r%s%s", bar.c_str(), rest.c_str());
  std::fflush(stderr);
  drawn_ = bar.size();
}

void Progress::Erase() {
  if (drawn_ > 0) {
    std::fprintf(stderr, "\r%s\r", std::string(drawn_, ' ').c_str());
    drawn_ = 0;
  }
}

}  // namespace orva
