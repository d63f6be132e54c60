// SPDX-License-Identifier: Apache-2.0
#include "decoder/angles.h"

#include <cmath>
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
  // Never destroyed: a driver that is a static object may still decode while the process ends.
  static const TrigTable* const table = new TrigTable;
  return *table;
}

}  // namespace tevoro::lidar
