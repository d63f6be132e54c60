// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_MODELS_H_
#define ORVA_TOOLS_SHARED_MODELS_H_

#include <cstddef>
#include <string>

#include "orva_driver.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace orva {

/// What the tool has to know about a sensor model to explain what it sees.
struct ModelTraits {
  LidarType type;
  const char* name;
  bool has_points;  ///< false: every cloud is empty
  bool measures;    ///< false: every point is the origin
  bool uses_calibration;
  bool has_temperatures;  ///< temperatures and status at a frame's end
  bool has_imu;
  std::size_t frame_points;  ///< of a whole frame; 0: not known
};

/// "a TS4B", "an NV2".
std::string OneOf(LidarType type);

/// Falls back to a record without abilities, named "unknown".
const ModelTraits& TraitsOf(LidarType type);

/// Adds --model, which takes the names above in any case.
CLI::Option* AddModelOption(CLI::App& command, LidarType& model);

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_MODELS_H_
