// SPDX-License-Identifier: Apache-2.0
#include "captures/selection.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <string>

namespace orva {

void AddSenderOptions(CLI::App& command, Selection& selection) {
  command.add_option("--port", selection.port, "Only what was sent to this UDP port")
      ->check(CLI::Range(1, 65535))
      ->type_name("N");
  command.add_option("--sensor-port", selection.sensor_port, "Only what was sent from this UDP port")
      ->check(CLI::Range(0, 65535))
      ->type_name("N");
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
