// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_COMPLETION_H_
#define ORVA_TOOLS_SHARED_COMPLETION_H_

#include <string>
#include <string_view>

namespace CLI {
class App;
}

namespace orva {

/// A script that completes commands, options and their values in bash, zsh or fish. Throws WrongUsage for
/// another shell.
std::string CompletionScript(const CLI::App& app, std::string_view shell);

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_COMPLETION_H_
