// SPDX-License-Identifier: Apache-2.0
#include "shared/models.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace orva {
namespace {

//                                            points measures calibration temperatures imu points a frame
constexpr std::array<ModelTraits, 6> kModels = {{
    {TS4B, "TS4B", true, true, true, true, false, 192 * 128},
    {TS6, "TS6", true, true, true, true, true, 192 * 128},
    {NV2, "NV2", true, true, false, false, true, 56 * 192},
    {TS4A, "TS4A", true, false, false, false, false, 192 * 128},
    {KR7, "KR7", false, false, false, false, false, 0},
    {TS4, "TS4", false, false, false, false, false, 0},
}};
constexpr ModelTraits kUnknown = {static_cast<LidarType>(0), "unknown", false, false, false, false, false, 0};

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace

const ModelTraits& TraitsOf(LidarType type) {
  const auto found =
      std::find_if(kModels.begin(), kModels.end(), [type](const auto& model) { return model.type == type; });
  return found == kModels.end() ? kUnknown : *found;
}

std::string OneOf(LidarType type) {
  const std::string name = TraitsOf(type).name;
  return (name.front() == 'N' ? "an " : "a ") + name;
}

CLI::Option* AddModelOption(CLI::App& command, LidarType& model) {
  const auto parse = [&model](const CLI::results_t& words) {
    const auto found = std::find_if(kModels.begin(), kModels.end(), [&words](const auto& candidate) {
      return Upper(words.front()) == candidate.name;
    });
    if (found == kModels.end()) {
      throw CLI::ValidationError("--model", "there is no model '" + words.front() +
                                                "'. Known are TS4B, TS6, NV2, TS4A, KR7 and TS4.");
    }
    model = found->type;
    return true;
  };
  return command.add_option("--model", parse, "Sensor model")->type_name("TS4B|TS6|NV2|TS4A|KR7|TS4");
}

}  // namespace orva
