// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "captures/survey.h"
#include "captures/survey_report.h"
#include "commands/commands.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/standard_output.h"
#include "shared/terminal.h"

namespace orva {
namespace {

constexpr const char* kInfoExamples =
    "The report goes to standard output. GAP S is the longest time between two\n"
    "packets, PAUSES are gaps of more than 0.1 s.\n"
    "Exit codes: 0 the driver gets frames out of it, 1 it gets none, 2 wrong usage.\n"
    "Examples:\n"
    "  orva info street.pcap\n"
    "  orva info street.pcap --json | jq '.sensors[0].models'\n";

struct InfoOptions {
  std::string path;
  bool json = false;
};

}  // namespace

void AddInfo(CLI::App& app) {
  CLI::App* command = app.add_subcommand("info", "Tell what a recording holds, and what the driver skips");
  const auto options = std::make_shared<InfoOptions>();
  command->add_option("FILE", options->path, "The recording, a pcap or pcapng file")->required();
  command->add_flag("--json", options->json, "The report as one JSON object");
  command->footer(kInfoExamples);
  command->callback([options] {
    Survey survey;
    {
      CatchInterrupts();
      Progress progress("reading the recording", 100);
      survey = SurveyCapture(options->path, [&progress](double share) {
        progress.Step(static_cast<int>(share * 100.0));
        return !Interrupted();
      });
    }
    PrintResult(options->json ? JsonReport(survey) : TextReport(survey));
    if (!GivesFrames(survey)) throw Failure(WhyNothing(survey, 0));
  });
}

}  // namespace orva
