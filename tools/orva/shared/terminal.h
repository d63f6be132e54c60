// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_TERMINAL_H_
#define ORVA_TOOLS_SHARED_TERMINAL_H_

#include <cstddef>
#include <string>

namespace CLI {
class App;
}

namespace orva {

// What the tool says to the person goes through here, to standard error. On a terminal, texts are wrapped
// at its width and may carry colour; with NO_COLOR or TERM=dumb and elsewhere they are plain lines, without
// escape sequences.

enum class Verbosity { kQuiet, kNormal, kVerbose };
/// Adds --quiet and --verbose.
void AddVerbosityOptions(CLI::App& command);
Verbosity TheVerbosity();

/// From now on, what this thread says begins with this name: several sensors speak at once.
void SpeakFor(const std::string& name);
void Say(const std::string& text);     ///< not with --quiet
void Detail(const std::string& text);  ///< with --verbose only
void Warn(const std::string& text);
/// The program's name and the text, for the error that ends the run.
void Complain(const std::string& text, const std::string& program = "orva");

/// A bar on the terminal's last line, with the lines of a report running above it. Where standard error is
/// no terminal, or a dumb one, there is no bar, only the lines. With --quiet there is neither.
class Progress {
 public:
  /// `total` 0: the amount is not known, the bar only shows that work goes on.
  Progress(std::string task, int total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Step(int done);
  void Line(const std::string& text);

 private:
  void Draw();
  void Erase();

  std::string task_;
  int total_;
  int done_ = 0;
  std::size_t drawn_ = 0;  ///< columns of the bar that stands on the terminal
};

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_TERMINAL_H_
