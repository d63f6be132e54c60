// SPDX-License-Identifier: Apache-2.0
#include "calibration.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>

#include "geometry.h"
#include "model.h"
#include "random.h"

namespace orva::sim {
namespace {

constexpr size_t kTableColumns = 256;

// Random streams of a unit.
enum Stream : uint64_t { kMount = 1, kLines = 2, kBeams = 3, kDistance = 4 };

std::runtime_error FileError(const std::filesystem::path& path, int error) {
  return std::runtime_error("cannot write " + path.string() + ": " + std::generic_category().message(error));
}

// Nine digits tell any two floats apart, also after a detour over double.
void AppendNumber(std::string& text, float value) {
  std::array<char, 32> digits;
  const auto end =
      std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::general, 9);
  text.append(digits.data(), end.ptr);
}

void WriteTable(const std::filesystem::path& path, std::span<const float> values, size_t per_line,
                uint32_t copies, const std::string& label) {
  std::string text;
  for (uint32_t copy = 0; copy < copies; ++copy) {
    for (size_t i = 0; i < values.size(); ++i) {
      const bool first = i % per_line == 0;
      if (first && !label.empty()) text += label + ',';
      AppendNumber(text, values[i]);
      text += (i + 1) % per_line == 0 ? '\n' : ',';
    }
  }
  errno = 0;
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) throw FileError(path, errno);
  file << text;
  file.close();
  if (!file) {
    const int error = errno;
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    throw FileError(path, error);
  }
}

}  // namespace

double Calibration::Uncorrected(double distance, double pulse_ratio) const {
  const double offset = pulse_ratio * pulse_ratio * static_cast<double>(weight[2]) +
                        pulse_ratio * static_cast<double>(weight[0]) + static_cast<double>(weight[3]);
  return (distance + offset) / (1.0 - static_cast<double>(weight[1]));
}

Calibration MakeCalibration(const Model& model, uint64_t unit) {
  Calibration result;
  result.azimuth.assign(Calibration::kEntries, 0.0F);
  result.elevation.assign(Calibration::kEntries, 0.0F);
  if (!model.has_calibration) return result;

  Random mount(unit, kMount);
  const double turn = 0.05 * mount.Normal();
  const double tilt = 0.05 * mount.Normal();
  const double bow = mount.Uniform(0.02, 0.1);  // degrees, distortion of the optics across the field
  Random lines(unit, kLines);
  Random beams(unit, kBeams);
  for (uint32_t line = 0; line < model.lines; ++line) {
    const double down = line / (model.lines - 1.0);
    const double line_turn = 0.02 * lines.Normal();
    const double line_tilt = 0.01 * lines.Normal();
    for (uint32_t column = 0; column < model.columns; ++column) {
      const double across = column / (model.columns - 1.0);
      const double arch = std::sin(std::numbers::pi * across);
      const double azimuth = std::lerp(model.left, model.right, across) + turn + line_turn +
                             bow * std::sin(2.0 * std::numbers::pi * across) + 0.005 * beams.Normal();
      const double elevation =
          std::lerp(model.top, model.bottom, down) + tilt + line_tilt + bow * arch + 0.005 * beams.Normal();
      const size_t code = line * kTableColumns + column;
      result.azimuth[code] = static_cast<float>(-azimuth);
      result.elevation[code] = static_cast<float>(elevation);
    }
  }

  Random distance(unit, kDistance);
  const auto about = [&](double value) { return static_cast<float>(value * distance.Uniform(0.8, 1.2)); };
  result.weight = {about(0.02), about(0.0006), about(-0.0015), about(0.04)};
  result.near_filter = {about(60.0), 1.5F, about(30.0), 0.3F, 5.0F, 5.0F, 2.0F, about(1.0)};
  return result;
}

void WriteCalibrationFolder(const Calibration& calibration, const Model& model,
                            const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw FileError(folder, error.value());
  const uint32_t copies = model.table_copies;
  WriteTable(folder / "azimuth.csv", calibration.azimuth, kTableColumns, copies, "");
  WriteTable(folder / "elevation.csv", calibration.elevation, kTableColumns, copies, "");
  WriteTable(folder / "weight.csv", calibration.weight, calibration.weight.size(), copies, "weight");
  WriteTable(folder / "near_filter.csv", calibration.near_filter, calibration.near_filter.size(), copies, "");
}

}  // namespace orva::sim
