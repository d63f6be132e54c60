// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_SURVEY_REPORT_H_
#define ORVA_TOOLS_CAPTURES_SURVEY_REPORT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "captures/survey.h"

namespace orva {

/// For a person: plain lines of at most 80 columns, but for the path and what libpcap says.
std::string TextReport(const Survey& survey);

/// One JSON object and a line end. Times are seconds, those of the capture since the epoch.
std::string JsonReport(const Survey& survey);

/// Does the driver get a frame out of the recording, of some model and port?
bool GivesFrames(const Survey& survey);

/// What the driver skips although it may be a sensor's: a line each for what is cut, tagged, IPv6 or in
/// fragments.
std::vector<std::string> WhatIsLost(const Survey& survey);

/// Why a replay of this port (0: of all) finds no packet, and what to do.
std::string WhyNothing(const Survey& survey, uint16_t port);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_SURVEY_REPORT_H_
