// SPDX-License-Identifier: Apache-2.0
#include "formats/cloud_shape.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "shared/failure.h"
#include "sim/model.h"

namespace orva {
namespace {

using messages::InvalidPoints;

void SetTimes(Cloud& cloud, double captured) {
  if (!(cloud.timestamp > 0.0)) cloud.timestamp = captured;
  for (PointTime& point : cloud.points) {
    if (!(point.timestamp > 0.0)) point.timestamp = captured;
  }
}

}  // namespace

CloudShape::CloudShape(const ShapeOptions& options) : options_(options) {
  if (options.organized && options.invalid == InvalidPoints::kDrop) {
    throw WrongUsage("--organized keeps every point in its place: it goes with --invalid nan or zero");
  }
}

const Cloud& CloudShape::ForFiles(const Cloud& cloud, FrameInfo& info) {
  const auto fallback = options_.organized ? InvalidPoints::kNan : InvalidPoints::kZero;
  const InvalidPoints invalid = options_.invalid.value_or(fallback);
  if (options_.organized) {
    const sim::Model& model = sim::FindModel(info.model);
    const bool whole =
        messages::RowLength(cloud) == model.columns && cloud.points.size() == model.BlocksPerFrame();
    info.row_length = whole ? model.columns : 0;
    without_rows_ += !whole && !cloud.points.empty();
  }
  if (invalid == InvalidPoints::kZero && !options_.capture_stamp) return cloud;
  for_files_ = cloud;
  std::vector<PointTime>& points = for_files_.points;
  if (invalid == InvalidPoints::kDrop) {
    points.erase(std::remove_if(points.begin(), points.end(), [](const PointTime& p) { return !IsValid(p); }),
                 points.end());
  } else if (invalid == InvalidPoints::kNan) {
    for (PointTime& point : points) {
      if (!IsValid(point)) point.x = point.y = point.z = std::numeric_limits<float>::quiet_NaN();
    }
  }
  if (options_.capture_stamp) SetTimes(for_files_, info.first_packet);
  return for_files_;
}

const Cloud& CloudShape::ForStreams(const Cloud& cloud, const FrameInfo& info) {
  if (!options_.capture_stamp) return cloud;
  for_streams_ = cloud;
  SetTimes(for_streams_, info.first_packet);
  return for_streams_;
}

InvalidPoints CloudShape::InvalidForStreams() const {
  return options_.invalid.value_or(InvalidPoints::kNan);
}

void AddShapeOptions(CLI::App& command, CLI::Option* out, ShapeOptions& options) {
  CLI::Option* invalid = command
                             .add_option_function<std::string>(
                                 "--invalid",
                                 [&options](const std::string& word) {
                                   options.invalid = word == "nan"    ? InvalidPoints::kNan
                                                     : word == "drop" ? InvalidPoints::kDrop
                                                                      : InvalidPoints::kZero;
                                 },
                                 "Points without a return are NaN, are left out, or are the origin")
                             ->check(CLI::IsMember({"nan", "drop", "zero"}).description(""))
                             ->needs(out)
                             ->type_name("nan|drop|zero");
  command
      .add_flag_callback(
          "--valid-only", [&options] { options.invalid = InvalidPoints::kDrop; },
          "The same as --invalid drop")
      ->needs(out)
      ->excludes(invalid);
  command
      .add_flag("--organized", options.organized,
                "PCD files with the rows and columns of the grid; points without a return are NaN")
      ->needs(out);
  command
      .add_option_function<std::string>(
          "--stamp", [&options](const std::string& word) { options.capture_stamp = word == "capture"; },
          "Where the sensor gives no time: none, or when the frame's first packet was captured")
      ->check(CLI::IsMember({"sensor", "capture"}).description(""))
      ->needs(out)
      ->type_name("sensor|capture");
}

}  // namespace orva
