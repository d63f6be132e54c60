// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "captures/survey.h"
#include "captures/survey_report.h"
#include "commands/commands.h"
#include "shared/standard_output.h"

namespace orva {
namespace {

constexpr const char* kExamples =
    "The report goes to standard output. GAP S is the longest time between two\n"
    "packets, PAUSES are gaps of more than 0.1 s.\n"
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
  command->footer(kExamples);
  command->callback([options] {
    const Survey survey = SurveyCapture(options->path);
    PrintResult(options->json ? JsonReport(survey) : TextReport(survey));
  });
}

}  // namespace orva
