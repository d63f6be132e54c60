// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <exception>
#include <string>

#include "commands/commands.h"
#include "orva_driver.h"
#include "shared/driver_log.h"
#include "shared/failure.h"
#include "shared/manual.h"
#include "shared/terminal.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

constexpr const char* kFooter =
    "Results go to files, the tool's own words to standard error; the reports of info\n"
    "and check go to standard output. What the driver library says goes to a file\n"
    "with --driver-log, and is told with --verbose or when something fails.\n"
    "Exit codes: 0 done, 1 failed, 2 wrong usage.\n";

int End(const std::string& text, int exit_code) {
  orva::Complain(text);
  return exit_code;
}

}  // namespace

int main(int argc, char** argv) {
  orva::CatchDriverLines();
  CLI::App app("ORVA: record, replay and look at the point clouds of a LiDAR sensor.", "orva");
  app.set_version_flag("--version", "orva " ORVA_DRIVER_VERSION_STRING);
  app.footer(kFooter);
  app.require_subcommand(1);
#define ORVA_ADD(Name) orva::Add##Name(app);
  ORVA_COMMANDS(ORVA_ADD)
#undef ORVA_ADD
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
    orva::AddVerbosityOptions(*command);
  }

  try {
    if (orva::WroteDocuments(app, argc, argv)) {
      return 0;
    }
  } catch (const std::exception& error) {
    return End(error.what(), kFailed);
  }
  const auto knows_command = [&app](const std::string& name) {
    return !app.get_subcommands([&name](const CLI::App* command) { return command->get_name() == name; })
                .empty();
  };
  if (argc > 1 && argv[1][0] != '-' && !knows_command(argv[1])) {
    return End(std::string("there is no command '") + argv[1] + "'. 'orva --help' lists them.", kWrongUsage);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& request) {  // --help, --version
    return app.exit(request);
  } catch (const CLI::ParseError& error) {
    return End(std::string(error.what()) + "\nTry 'orva --help' or 'orva COMMAND --help'.", kWrongUsage);
  } catch (const orva::WrongUsage& error) {
    return End(error.what(), kWrongUsage);
  } catch (const std::exception& error) {
    const std::string said = orva::DriverComplaints();
    return End(error.what() + (said.empty() ? "" : "\nThe driver said:\n" + said), kFailed);
  }
  return 0;
}
