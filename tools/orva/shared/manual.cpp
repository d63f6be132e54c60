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
#include "shared/command_tree.h"
#include "shared/completion.h"
#include "shared/failure.h"

namespace orva {
namespace {

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

}  // namespace

bool WroteDocuments(const CLI::App& app, int argc, const char* const* argv) {
  if (argc != 3) {
    return false;
  }
  const std::string_view wish = argv[1];
  if (wish == "--completion") {
    const std::string script = CompletionScript(app, argv[2]);
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
