// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_COMMANDS_COMMANDS_H_
#define ORVA_TOOLS_COMMANDS_COMMANDS_H_

namespace CLI {
class App;
}

namespace orva {

/// Every sub-command, in the order of the help: NAME stands for the function AddNAME of its source file. The
/// line here is all that the program needs to know of it.
#define ORVA_COMMANDS(COMMAND) \
  COMMAND(Simulate)            \
  COMMAND(Replay)              \
  COMMAND(Render)              \
  COMMAND(Live)                \
  COMMAND(View)                \
  COMMAND(Record)              \
  COMMAND(Extract)             \
  COMMAND(Send)                \
  COMMAND(Info)                \
  COMMAND(Check)

// Each adds its sub-command to the program: options, help and, as the CLI11 callback, the work itself.
// The work throws Failure or WrongUsage when it cannot go on, and returns when it is done.

#define ORVA_DECLARE(Name) void Add##Name(CLI::App& app);
ORVA_COMMANDS(ORVA_DECLARE)
#undef ORVA_DECLARE

}  // namespace orva

#endif  // ORVA_TOOLS_COMMANDS_COMMANDS_H_
