// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "feeds/show.h"
#include "sessions/calibration_files.h"
#include "sessions/driver_options.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/numbers.h"
#include "shared/terminal.h"

namespace orva {
namespace {

constexpr const char* kViewExamples =
    "Examples:\n"
    "  orva view street.pcap --model TS4B --calib calib/ --open\n"
    "  orva view --live --model TS6 --port 6699 --calib calib/\n"
    "  orva view --model TS6 --port 6699 --sensor 192.168.1.200 --command-port 6690\n"
    "The page is for this machine alone, unless --bind says otherwise; the printed address then\n"
    "holds a token, without which nobody gets in. Ctrl-C ends it.\n";

struct ViewOptions {
  DriverParam param = OpenParam(PCAP);
  bool live = false;
  bool uncalibrated = false;  ///< wanted
  ShowOptions show;
};

void View(ViewOptions options) {
  DriverParam& param = options.param;
  const bool live = options.live || param.calib_from_lidar;
  if (live == !param.input_param.pcap_path.empty()) {
    throw WrongUsage("give either a recording, or --live or --sensor.");
  }
  if (live && param.input_param.msop_port == 0) {
    throw WrongUsage("a live sensor needs --port, the UDP port of its data.");
  }
  param.input_type = live ? ONLINE : PCAP;
  if (!live) {
    UseCalibrationBeside(param);
  }
  CheckCalibration(param, options.uncalibrated);
  CatchInterrupts();
  Show(param, options.show);
}

}  // namespace

void AddView(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("view", "Show a recording or a live sensor on a page in the browser");
  const auto options = std::make_shared<ViewOptions>();
  AddReplayOptions(*command, options->param, options->uncalibrated);
  command->get_option("FILE")->required(false);
  command->get_option("--model")->required();
  command->add_flag("--live", options->live, "A live sensor, instead of a recording");
  AddSensorOptions(*command, options->param);
  AddNumber(*command, "--http-port", options->show.port, 0, 65535,
            "TCP port of the page; 0: of the system's choice")
      ->default_str(NumberText(options->show.port));
  command->add_option("--bind", options->show.address, "Address on which the page is served; 0.0.0.0: all")
      ->capture_default_str()
      ->check(CLI::ValidIPV4)
      ->type_name("IP");
  command->add_option("--allow-origin", options->show.origins, "A page from elsewhere that may connect")
      ->type_name("URL");
  command->add_flag("--open", options->show.open, "Open the page in the browser");
  command->footer(kViewExamples);
  command->callback([options] { View(*options); });
}

}  // namespace orva
