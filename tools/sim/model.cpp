// SPDX-License-Identifier: Apache-2.0
#include "model.h"

#include <array>
#include <stdexcept>
#include <string>

#include "encoders.h"

namespace orva::sim {
namespace {

// NV2's directions are built in: 0.625 degrees from column to column, 30 / 56 from line to line.
constexpr double kNv2Right = 60.0 - 191 * 0.625;
constexpr double kNv2Bottom = 15.0 - 55 * 30.0 / 56.0;

//    size  lines columns blocks measures calibration copies left right top bottom encode
constexpr std::array<Model, 6> kModels{{
    {TS4B, "TS4B", 1360, 192, 128, 32, true, true, 1, 60.0, -60.0, 12.8, -25.4, EncodeTs4b},
    {TS6, "TS6", 1104, 192, 128, 64, true, true, 1, 60.0, -60.0, 15.0, -27.0, EncodeTs6},
    {NV2, "NV2", 1236, 56, 192, 192, true, false, 0, 60.0, kNv2Right, 15.0, kNv2Bottom, EncodeNv2},
    {TS4A, "TS4A", 1360, 192, 128, 32, false, true, 4, 60.0, -60.0, 12.8, -25.4, EncodeTs4a},
    {KR7, "KR7", 1236, 56, 192, 192, false, false, 0, 60.0, -60.0, 15.0, -15.0, EncodeKr7},
    {TS4, "TS4", 1236, 56, 192, 192, false, true, 4, 60.0, -60.0, 15.0, -15.0, EncodeTs4},
}};

}  // namespace

const Model& FindModel(LidarType type) {
  for (const Model& model : kModels) {
    if (model.type == type) return model;
  }
  throw std::invalid_argument("no sensor model has the number " + std::to_string(type));
}

}  // namespace orva::sim
