// SPDX-License-Identifier: Apache-2.0
#include "shared/completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <vector>

#include "shared/command_tree.h"
#include "shared/failure.h"

namespace orva {
namespace {

/// What may follow an option, or stand in the place of an argument.
struct Values {
  enum class Kind { kAny, kFile, kFolder, kWords } kind = Kind::kAny;
  std::string words;  ///< parted by blanks
};

/// The help names the choices as "a|b|c", and those that CLI11 checks as "{a,b,c}".
Values ValuesOf(const CLI::Option& option) {
  std::string type = option.get_type_name();
  const size_t brace = type.find('{');
  if (brace != std::string::npos) type = type.substr(brace + 1, type.find('}') - brace - 1);
  if (brace != std::string::npos || type.find('|') != std::string::npos) {
    std::replace_if(
        type.begin(), type.end(), [](char c) { return c == '|' || c == ','; }, ' ');
    return {Values::Kind::kWords, type};
  }
  if (type == "FOLDER" || type == "DIR") return {Values::Kind::kFolder, ""};
  if (type == "FILE" || type == "TEXT") return {Values::Kind::kFile, ""};
  if (option.check_name("--split-by")) return {Values::Kind::kWords, type};
  return {};
}

/// The shell command that lists these, with `$word` begun.
std::string BashValues(const Values& values) {
  switch (values.kind) {
    case Values::Kind::kWords:
      return "compgen -W '" + values.words + "' -- \"$word\"";
    case Values::Kind::kFile:
      return "compgen -f -- \"$word\"";
    case Values::Kind::kFolder:
      return "compgen -d -- \"$word\"";
    case Values::Kind::kAny:
      break;
  }
  return "";
}

std::string BashCompletion(const CLI::App& app) {
  std::ostringstream values;
  std::ostringstream words;
  std::string commands;
  for (const CLI::App* command : Commands(app)) {
    commands += (commands.empty() ? "" : " ") + command->get_name();
    std::string spelled;
    for (const CLI::Option* option : Options(*command)) {
      for (const std::string& spelling : Spellings(*option)) {
        spelled += (spelled.empty() ? "" : " ") + spelling;
        if (TakesValue(*option)) {
          const std::string list = BashValues(ValuesOf(*option));
          values << "    '" << command->get_name() << " " << spelling << "') "
                 << (list.empty() ? "return" : "mapfile -t COMPREPLY < <(" + list + "); return") << " ;;\n";
        }
      }
    }
    words << "    " << command->get_name() << ") words='" << spelled << "' ;;\n";
  }
  std::string own;
  for (const CLI::Option* option : Options(app)) {
    for (const std::string& spelling : Spellings(*option)) {
      own += " " + spelling;
    }
  }
  return "# bash completion for orva, made by 'orva --completion bash'\n"
         "_orva() {\n"
         "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} words=\n"
         "  COMPREPLY=()\n"
         "  if ((COMP_CWORD == 1)); then\n"
         "    mapfile -t COMPREPLY < <(compgen -W '" +
         commands + own +
         "' -- \"$word\")\n"
         "    return\n"
         "  fi\n"
         "  case \"${COMP_WORDS[1]} $before\" in\n" +
         values.str() +
         "  esac\n"
         "  case \"${COMP_WORDS[1]}\" in\n" +
         words.str() +
         "  esac\n"
         "  if [[ $word == -* ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
         "  else\n"
         "    mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
         "  fi\n"
         "}\n"
         "complete -o filenames -F _orva orva\n";
}

/// Inside single quotes of zsh and fish; zsh gives brackets and colons in a description a meaning.
std::string Quoted(const std::string& text, bool described) {
  std::string quoted;
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else if (c == '\n') {
      quoted += ' ';
    } else {
      if (described && (c == '[' || c == ']' || c == ':' || c == '\\')) quoted += '\\';
      quoted += c;
    }
  }
  return quoted;
}

std::string ZshValues(const CLI::Option& option) {
  const Values values = ValuesOf(option);
  std::string action = " ";
  if (values.kind == Values::Kind::kWords) action = "(" + values.words + ")";
  if (values.kind == Values::Kind::kFile) action = "_files";
  if (values.kind == Values::Kind::kFolder) action = "_files -/";
  return ":" + Quoted(option.get_type_name(), true) + ":" + action;
}

std::string ZshCompletion(const CLI::App& app) {
  std::ostringstream commands;
  std::ostringstream cases;
  for (const CLI::App* command : Commands(app)) {
    commands << "    '" << command->get_name() << ":" << Quoted(command->get_description(), true) << "'\n";
    cases << "    " << command->get_name() << ")\n      _arguments";
    for (const CLI::Option* option : Options(*command)) {
      for (const std::string& spelling : Spellings(*option)) {
        cases << " \\\n        '" << spelling << "[" << Quoted(option->get_description(), true) << "]";
        const int values = TakesValue(*option) ? std::max(option->get_items_expected_min(), 1) : 0;
        for (int i = 0; i < values; ++i) cases << ZshValues(*option);
        cases << "'";
      }
    }
    cases << " \\\n        '*:file:_files'\n      ;;\n";
  }
  return "#compdef orva\n# zsh completion for orva, made by 'orva --completion zsh'\n"
         "_orva() {\n"
         "  local -a commands=(\n" +
         commands.str() +
         "  )\n"
         "  if ((CURRENT == 2)); then\n"
         "    _describe command commands\n"
         "    return\n"
         "  fi\n"
         "  local command=$words[2]\n"
         "  shift words\n"
         "  ((CURRENT--))\n"
         "  case $command in\n" +
         cases.str() +
         "  esac\n"
         "}\n"
         "if [[ $funcstack[1] == _orva ]]; then _orva \"$@\"; else compdef _orva orva; fi\n";
}

std::string FishCompletion(const CLI::App& app) {
  std::ostringstream script;
  script << "# fish completion for orva, made by 'orva --completion fish'\n";
  for (const CLI::App* command : Commands(app)) {
    script << "complete -c orva -f -n __fish_use_subcommand -a " << command->get_name() << " -d '"
           << Quoted(command->get_description(), false) << "'\n";
    for (const CLI::Option* option : Options(*command)) {
      if (option->get_positional()) continue;
      script << "complete -c orva -n '__fish_seen_subcommand_from " << command->get_name() << "'";
      for (const std::string& name : option->get_snames()) script << " -s " << name;
      for (const std::string& name : option->get_lnames()) script << " -l " << name;
      script << " -d '" << Quoted(option->get_description(), false) << "'";
      if (TakesValue(*option)) {
        const Values values = ValuesOf(*option);
        if (values.kind == Values::Kind::kWords) script << " -x -a '" << values.words << "'";
        if (values.kind == Values::Kind::kFile) script << " -r -F";
        if (values.kind == Values::Kind::kFolder) script << " -x -a '(__fish_complete_directories)'";
        if (values.kind == Values::Kind::kAny) script << " -x";
      }
      script << "\n";
    }
  }
  return script.str();
}

}  // namespace

std::string CompletionScript(const CLI::App& app, std::string_view shell) {
  if (shell == "bash") return BashCompletion(app);
  if (shell == "zsh") return ZshCompletion(app);
  if (shell == "fish") return FishCompletion(app);
  throw WrongUsage("there is completion for bash, zsh and fish, not for '" + std::string(shell) + "'");
}

}  // namespace orva
