// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_COMMANDS_COMMANDS_H_
#define ORVA_TOOLS_COMMANDS_COMMANDS_H_

namespace CLI {
class App;
}

namespace orva {

// Each adds its sub-command to the program: options, help and, as the CLI11 callback, the work itself.
// The work throws Failure or WrongUsage when it cannot go on, and returns when it is done.

void AddCheck(CLI::App& app);
void AddInfo(CLI::App& app);
void AddLive(CLI::App& app);
void AddRecord(CLI::App& app);
void AddRender(CLI::App& app);
void AddReplay(CLI::App& app);
void AddSimulate(CLI::App& app);

}  // namespace orva

#endif  // ORVA_TOOLS_COMMANDS_COMMANDS_H_
