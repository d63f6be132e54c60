// SPDX-License-Identifier: Apache-2.0
#include "decoder/angles.h"

#include <cmath>
#include <memory>
#include <numbers>

namespace tevoro::lidar {

TrigTable::TrigTable() {
  for (int32_t angle = kFirst; angle <= kLast; ++angle) {
    const double radians = angle * 0.01 * std::numbers::pi / 180.0;
    sin_[Index(angle)] = static_cast<float>(std::sin(radians));
    cos_[Index(angle)] = static_cast<float>(std::cos(radians));
  }
}

const TrigTable& TrigTable::Get() {
  static const std::unique_ptr<const TrigTable> table(new TrigTable);  // 504 KB: not for a stack
  return *table;
}

}  // namespace tevoro::lidar
