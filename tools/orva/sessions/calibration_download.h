// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_CALIBRATION_DOWNLOAD_H_
#define ORVA_TOOLS_SESSIONS_CALIBRATION_DOWNLOAD_H_

#include <string>

#include "formats/output_file.h"
#include "orva_driver.h"

namespace orva {

/// Where a recording's calibration lies: beside it, street.calib for street.pcap and for the street_0000.pcap
/// of a rotating one.
std::string CalibrationFolderOf(const std::string& recording);

/// Takes that folder for a recording that is to be opened without one, where the model uses one and it is
/// there, and says so.
void UseCalibrationBeside(DriverParam& param);

/// Downloads a sensor's calibration as the driver does, and stores it in a new folder that --calib reads. Its
/// numbers read back to the same floats. Throws Failure, also after Ctrl-C, and leaves no part of a folder.
void StoreCalibration(LidarType model, const CalibrationParam& sensor, const std::string& folder,
                      Existing existing);

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_CALIBRATION_DOWNLOAD_H_
