// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_TERMINAL_H_
#define ORVA_TOOLS_SHARED_TERMINAL_H_

#include <string>

namespace orva {

// What the tool says to the person goes through here, to standard error. On a terminal, texts are wrapped
// at its width and may carry colour (NO_COLOR and TERM=dumb are respected); elsewhere they are plain lines.

void Say(const std::string& text);
void Warn(const std::string& text);
/// "orva: " and the text, for the error that ends the run.
void Complain(const std::string& text);

/// A bar on the terminal's last line, with the lines of a report running above it. Where standard error is
/// no terminal there is no bar, only the lines.
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
  bool visible_ = false;
};

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_TERMINAL_H_
