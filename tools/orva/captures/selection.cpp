// SPDX-License-Identifier: Apache-2.0
#include "captures/selection.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <string>

#include "shared/numbers.h"

namespace orva {

void AddSenderOptions(CLI::App& command, Selection& selection) {
  AddNumber(command, "--port", selection.port, 1, 65535, "Only what was sent to this UDP port");
  AddNumber(command, "--sensor-port", selection.sensor_port, 0, 65535,
            "Only what was sent from this UDP port");
  command
      .add_option_function<std::string>(
          "--source",
          [&selection](const std::string& address) {
            selection.source.emplace();
            inet_pton(AF_INET, address.c_str(), selection.source->data());
          },
          "Only what was sent from this address")
      ->check(CLI::ValidIPV4)
      ->type_name("IP");
}

}  // namespace orva
