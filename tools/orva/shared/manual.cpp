// SPDX-License-Identifier: Apache-2.0
#include "shared/manual.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "orva_driver.h"
#include "shared/failure.h"

namespace orva {
namespace {

std::vector<const CLI::App*> Commands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> Options(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

/// As the options are typed: "-h, --help".
std::vector<std::string> Spellings(const CLI::Option& option) {
  std::vector<std::string> spellings;
  for (const std::string& name : option.get_snames()) {
    spellings.push_back("-" + name);
  }
  for (const std::string& name : option.get_lnames()) {
    spellings.push_back("--" + name);
  }
  return spellings;
}

bool TakesValue(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

/// Text that the formatter of manual pages shows as it stands.
std::string Roff(const std::string& text) {
  std::string escaped;
  bool line_begins = true;
  for (const char c : text) {
    if (line_begins && (c == '.' || c == '\'')) {
      escaped += "\\&";
    }
    line_begins = c == '\n';
    if (c == '\\') {
      escaped += "\\e";
    } else {
      escaped += c == '-' ? "\\-" : c == '\'' ? "\\(aq" : std::string(1, c);
    }
  }
  return escaped;
}

void WriteOptions(const CLI::App& app, std::ostream& page) {
  std::string group = "Options";
  for (const CLI::Option* option : Options(app)) {
    if (option->get_group() != group && !option->get_positional()) {
      group = option->get_group();
      page << ".SS " << Roff(group) << "\n";
    }
    std::string names = option->get_positional() ? option->get_name(true) : std::string();
    for (const std::string& spelling : Spellings(*option)) {
      names += (names.empty() ? "" : ", ") + spelling;
    }
    page << ".TP\n\\fB" << Roff(names) << "\\fR";
    if (TakesValue(*option) && !option->get_positional()) {
      page << " \\fI" << Roff(option->get_type_name()) << "\\fR";
    }
    page << "\n" << Roff(option->get_description());
    if (!option->get_default_str().empty()) {
      page << " (default: " << Roff(option->get_default_str()) << ")";
    }
    page << (option->get_required() ? " (required)\n" : "\n");
  }
}

/// `parent` null: the page of the program itself.
std::string ManPage(const CLI::App& app, const CLI::App* parent) {
  const std::string title = parent == nullptr ? app.get_name() : parent->get_name() + "-" + app.get_name();
  const std::string call = parent == nullptr ? app.get_name() : parent->get_name() + " " + app.get_name();
  std::ostringstream page;
  page << ".TH " << Roff(title) << " 1 \"\" \"orva " ORVA_DRIVER_VERSION_STRING "\" \"ORVA\"\n"
       << ".SH NAME\n"
       << Roff(title) << " \\- " << Roff(app.get_description()) << "\n.SH SYNOPSIS\n\\fB" << Roff(call)
       << "\\fR ";
  page << (Commands(app).empty() ? "[options]" : "\\fIcommand\\fR [options]");
  for (const CLI::Option* option : Options(app)) {
    if (option->get_positional()) {
      page << " \\fI" << Roff(option->get_name(true)) << "\\fR";
    }
  }
  page << "\n.SH OPTIONS\n";
  WriteOptions(app, page);
  if (!Commands(app).empty()) {
    page << ".SH COMMANDS\n";
    for (const CLI::App* command : Commands(app)) {
      page << ".TP\n\\fB" << Roff(command->get_name()) << "\\fR\n"
           << Roff(command->get_description()) << "; see \\fB"
           << Roff(app.get_name() + "-" + command->get_name()) << "\\fR(1)\n";
    }
  }
  if (!app.get_footer().empty()) {
    page << ".SH NOTES\n.nf\n" << Roff(app.get_footer()) << "\n.fi\n";
  }
  if (parent != nullptr) {
    page << ".SH SEE ALSO\n\\fB" << Roff(parent->get_name()) << "\\fR(1)\n";
  }
  return page.str();
}

void WritePage(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path);
  file << text << std::flush;
  if (!file) {
    throw Failure("cannot write " + path.string() + ". The folder must exist and have room.");
  }
}

/// The shell command that lists what may follow an option of this type, with `$word` begun.
std::string ValueCompletion(const std::string& type) {
  if (type == "FOLDER" || type == "DIR") {
    return "compgen -d -- \"$word\"";
  }
  std::string choices = type;
  if (type.find('|') == std::string::npos) {
    return type == "FILE" || type == "TEXT" ? "compgen -f -- \"$word\"" : "";
  }
  for (char& c : choices) {
    c = c == '|' ? ' ' : c;
  }
  return "compgen -W '" + choices + "' -- \"$word\"";
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
          const std::string list = ValueCompletion(option->get_type_name());
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

}  // namespace

bool WroteDocuments(const CLI::App& app, int argc, const char* const* argv) {
  if (argc != 3) {
    return false;
  }
  const std::string_view wish = argv[1];
  if (wish == "--completion" && std::string_view(argv[2]) == "bash") {
    const std::string script = BashCompletion(app);
    if (std::fwrite(script.data(), 1, script.size(), stdout) != script.size() || std::fflush(stdout) != 0) {
      throw Failure("cannot write the completion script to standard output.");
    }
    return true;
  }
  if (wish == "--man") {
    const std::filesystem::path folder = argv[2];
    WritePage(folder / (app.get_name() + ".1"), ManPage(app, nullptr));
    for (const CLI::App* command : Commands(app)) {
      WritePage(folder / (app.get_name() + "-" + command->get_name() + ".1"), ManPage(*command, &app));
    }
    return true;
  }
  return false;
}

}  // namespace orva
