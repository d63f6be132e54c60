// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_DRIVER_OPTIONS_H_
#define ORVA_TOOLS_SESSIONS_DRIVER_OPTIONS_H_

#include "orva_driver.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace orva {

/// A parameter record whose limits let every point pass; the driver's own defaults reject them all.
DriverParam OpenParam(InputType input_type);

/// Adds --distance, --azimuth, --elevation and --mount. `param` must outlive the parsing.
void AddDecoderOptions(CLI::App& command, DecoderParam& param);

/// Adds --port, --host and --driver-log: where a live sensor's packets arrive.
void AddListenOptions(CLI::App& command, InputParam& param);

/// Adds --duration, for commands that listen until they are told to end.
void AddDurationOption(CLI::App& command, double& seconds);

/// Adds --sensor, which it returns, and what goes with it: the calibration is downloaded. After --calib,
/// where there is one, which it excludes.
CLI::Option* AddSensorOptions(CLI::App& command, DriverParam& param);

/// Adds --uncalibrated: points without calibration are wanted where there is none.
void AddUncalibratedOption(CLI::App& command, bool& uncalibrated);

/// Adds what every command that opens a recording takes: FILE, --model, --port, --calib, --driver-log and the
/// above.
void AddReplayOptions(CLI::App& command, DriverParam& param, bool& uncalibrated);

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_DRIVER_OPTIONS_H_
