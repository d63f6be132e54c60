// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace orva::sim {

struct Model;

/// What is measured for each unit at the end of its production line.
struct Calibration {
  /// Entries of a table; a beam's is at line * 256 + column.
  static constexpr size_t kEntries = 49152;

  std::vector<float> azimuth;          ///< degrees, positive to the right
  std::vector<float> elevation;        ///< degrees, positive upwards
  std::array<float, 4> weight{};       ///< distance error: by pulse ratio, distance, ratio squared; constant
  std::array<float, 8> near_filter{};  ///< see docs/calibration.md

  /// Metres that a unit measures for a target at `distance` metres whose echo has this pulse ratio.
  double Uncorrected(double distance, double pulse_ratio) const;
};

/// The calibration of the unit with this number: the model's grid with small deviations. All zero for a
/// model without calibration.
Calibration MakeCalibration(const Model& model, uint64_t unit);

/// Writes the folder that the driver loads: azimuth.csv, elevation.csv, weight.csv and near_filter.csv. The
/// numbers read back to the same bits. Throws std::runtime_error with the path and the system's reason; a
/// file that could not be completed is not left behind.
void WriteCalibrationFolder(const Calibration& calibration, const Model& model,
                            const std::filesystem::path& folder);

}  // namespace orva::sim
