// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "input/input.h"

namespace tevoro::lidar {

class InputFactory {
 public:
  /// The input of a kind, not yet initialised; null after the red line for an unknown kind.
  static std::shared_ptr<Input> CreateInput(const InputType& type, const InputParam& param);
};

}  // namespace tevoro::lidar
