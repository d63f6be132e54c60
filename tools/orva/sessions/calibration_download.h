// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_CALIBRATION_DOWNLOAD_H_
#define ORVA_TOOLS_SESSIONS_CALIBRATION_DOWNLOAD_H_

#include <string>

#include "formats/output_file.h"
#include "orva_driver.h"

namespace orva {

/// Downloads a sensor's calibration as the driver does, and stores it in a new folder that --calib reads. Its
/// numbers read back to the same floats. Throws Failure, also after Ctrl-C, and leaves no part of a folder.
void StoreCalibration(LidarType model, const CalibrationParam& sensor, const std::string& folder,
                      Existing existing);

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_CALIBRATION_DOWNLOAD_H_
