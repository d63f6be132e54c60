// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FEEDS_SHOW_H_
#define ORVA_TOOLS_FEEDS_SHOW_H_

#include <cstdint>
#include <string>
#include <vector>

#include "orva_driver.h"

namespace orva {

struct ShowOptions {
  std::string address = "127.0.0.1";  ///< other than loopback: a token is asked for
  std::uint16_t port = 6780;          ///< 0: of the system's choice
  std::vector<std::string> origins;   ///< further ones that may connect
  bool open = false;                  ///< in the browser
};

/// Serves the page until Ctrl-C. Throws Failure where it cannot begin, and where the tool was built without
/// the page.
void Show(const DriverParam& param, const ShowOptions& options);

}  // namespace orva

#endif  // ORVA_TOOLS_FEEDS_SHOW_H_
