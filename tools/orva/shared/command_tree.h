// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_COMMAND_TREE_H_
#define ORVA_TOOLS_SHARED_COMMAND_TREE_H_

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace orva {

// What the program's own documents are made from: the commands and options as --help shows them.

inline std::vector<const CLI::App*> Commands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

inline std::vector<const CLI::Option*> Options(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

/// As the options are typed: "-h, --help".
inline std::vector<std::string> Spellings(const CLI::Option& option) {
  std::vector<std::string> spellings;
  for (const std::string& name : option.get_snames()) {
    spellings.push_back("-" + name);
  }
  for (const std::string& name : option.get_lnames()) {
    spellings.push_back("--" + name);
  }
  return spellings;
}

inline bool TakesValue(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_COMMAND_TREE_H_
