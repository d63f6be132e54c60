// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_CALIBRATION_CHECK_H_
#define ORVA_TOOLS_SESSIONS_CALIBRATION_CHECK_H_

#include <string>

#include "orva_driver.h"

namespace orva {

/// The driver says nothing when it cannot use a calibration folder, and goes on without. This tells the
/// person: throws Failure where there is no such folder, warns where it looks unusable or is not given at
/// all. Models without calibration pass in silence.
void CheckCalibration(LidarType model, const std::string& folder);

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_CALIBRATION_CHECK_H_
