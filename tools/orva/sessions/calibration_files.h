// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_CALIBRATION_FILES_H_
#define ORVA_TOOLS_SESSIONS_CALIBRATION_FILES_H_

#include <cstddef>
#include <string>
#include <vector>

#include "orva_driver.h"

namespace orva {

/// What the driver makes of a calibration folder, found with its own reading of keywords and numbers.
struct CalibrationFiles {
  bool accepted = false;    ///< the driver takes it
  bool sound = false;       ///< and rightly: one file of each kind, each for what it is, with usable values
  std::string verdict;      ///< one sentence
  std::string kinds;        ///< a line for each of the four files: fine, or what is wrong with it
  std::string doubts;       ///< of a sound folder: directions that are lost or wrong; empty where none are
  std::string details;      ///< file by file: what it is taken for, how many values, their range
  std::size_t ignored = 0;  ///< files whose path holds no keyword
  std::string ignored_paths;
};

/// For a model that has calibration files. Throws Failure where the folder cannot be read.
CalibrationFiles ExamineCalibration(LidarType model, const std::string& folder);

/// Before a driver is opened, which says nothing of a folder that it cannot use and goes on without, nor of
/// one that it uses wrongly: throws Failure for such a folder. Returns whether points will come uncalibrated,
/// or wrong in this way, and warns of it. Models without calibration pass in silence.
bool CheckCalibration(const DriverParam& param, bool uncalibrated);

/// Where a recording's calibration lies: beside it, street.calib for street.pcap and for the street_0000.pcap
/// of a rotating one.
std::string CalibrationFolderOf(const std::string& recording);

/// Takes that folder for a recording that is to be opened without one, where the model uses one and it is
/// there, and says so.
void UseCalibrationBeside(DriverParam& param);

/// Where the calibration in use comes from, in a few words.
std::string CalibrationText(LidarType model, const DriverStatistics& statistics);

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_CALIBRATION_FILES_H_
