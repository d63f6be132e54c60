// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_DRIVER_LOG_H_
#define ORVA_TOOLS_SHARED_DRIVER_LOG_H_

#include <string>

namespace CLI {
class App;
}

namespace orva {

// The lines that the driver prints, up to one for each packet. They do not reach the person as they come:
// they are counted, written to a file with --driver-log, and shown once each with --verbose.

/// To be called before the first driver.
void CatchDriverLines();

/// Adds --driver-log.
void AddDriverLogOption(CLI::App& command);

/// What the driver said of trouble, a line each with its count, most frequent first; empty where it was
/// content. For the end of a run that failed.
std::string DriverComplaints();

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_DRIVER_LOG_H_
