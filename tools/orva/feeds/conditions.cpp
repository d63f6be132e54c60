// SPDX-License-Identifier: Apache-2.0
#include "feeds/conditions.h"

#include <optional>

#include "shared/models.h"

namespace orva {
namespace {

/// Of the points that did arrive.
view::Condition CalibrationCondition(LidarType model, const DriverStatistics& statistics) {
  if (!TraitsOf(model).uses_calibration) {
    return {};
  }
  if (statistics.calibration == CALIBRATION_NONE) {
    return {
        "uncalibrated",
        "There is no calibration: every direction of the grid is straight ahead. Give the sensor's folder "
        "with --calib, or its address with --sensor."};
  }
  if (statistics.calibration == CALIBRATION_DOWNLOADING) {
    return {"downloading",
            "The calibration is being downloaded from the sensor; until then every point lies "
            "straight ahead."};
  }
  return {};
}

std::optional<view::Condition> ModelCondition(LidarType model) {
  const ModelTraits& traits = TraitsOf(model);
  if (!traits.has_points) {
    return view::Condition{"no-points",
                           std::string("The driver decodes no points of a ") + traits.name + "."};
  }
  if (!traits.measures) {
    return view::Condition{"no-points", std::string("The driver decodes no distances of a ") + traits.name +
                                            ": every point is the origin."};
  }
  return std::nullopt;
}

std::string WrongModel(LidarType model, const char* what) {
  return std::string(what) + " are no packets of the model " + TraitsOf(model).name +
         ". Check --model and --port.";
}

}  // namespace

view::Condition RecordingCondition(LidarType model, const DriverStatistics& statistics, const Cloud& first,
                                   const Cloud& last) {
  if (statistics.decoded == 0 && statistics.refused_length + statistics.refused_identifier > 0) {
    return {"wrong-model", WrongModel(model, "What the recording holds")};
  }
  if (auto condition = ModelCondition(model)) {
    return *condition;
  }
  if (CountValid(first) + CountValid(last) == 0) {
    return {"no-points",
            "Every point is the origin: nothing lies inside --distance, --azimuth and --elevation."};
  }
  return CalibrationCondition(model, statistics);
}

view::Condition LiveCondition(const DriverParam& param, const DriverStatistics& now,
                              const DriverStatistics& before) {
  const LidarType model = param.lidar_type;
  if (now.received == before.received) {
    return {"no-packets", now.received == 0
                              ? "Nothing has arrived on UDP port " +
                                    std::to_string(param.input_param.msop_port) +
                                    " yet. Is the sensor on, and does it send to this machine and port?"
                              : "No packet has arrived for a second. Is the sensor off, or a cable loose?"};
  }
  if (now.decoded == before.decoded) {
    return {"wrong-model", WrongModel(model, "What arrives")};
  }
  if (auto condition = ModelCondition(model)) {
    return *condition;
  }
  return CalibrationCondition(model, now);
}

}  // namespace orva
