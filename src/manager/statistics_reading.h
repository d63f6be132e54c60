// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <type_traits>
#include <utility>

#include "orva_driver.h"

namespace tevoro::lidar {

// Applications compiled against an earlier header hand over a record of the same size for as long as this
// holds.
static_assert(sizeof(DriverStatistics) == 256);
static_assert(std::has_unique_object_representations_v<DriverStatistics>, "compared byte by byte below");

/// Reads the counters with `read` until two readings agree: no packet moved in between, so that the numbers
/// of one reading add up. Gives up after a few: then they differ by the packets that moved meanwhile.
template <typename Read>
DriverStatistics ReadSettled(const Read& read) {
  constexpr int kMostReadings = 16;
  DriverStatistics latest = read();
  for (int i = 1; i < kMostReadings; ++i) {
    const DriverStatistics previous = std::exchange(latest, read());
    if (std::memcmp(&previous, &latest, sizeof(latest)) == 0) break;
  }
  return latest;
}

}  // namespace tevoro::lidar
