// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_SURVEY_REPORT_H_
#define ORVA_TOOLS_CAPTURES_SURVEY_REPORT_H_

#include <string>

#include "captures/survey.h"

namespace orva {

/// For a person: plain lines of at most 80 columns, but for the path and what libpcap says.
std::string TextReport(const Survey& survey);

/// One JSON object and a line end. Times are seconds, those of the capture since the epoch.
std::string JsonReport(const Survey& survey);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_SURVEY_REPORT_H_
