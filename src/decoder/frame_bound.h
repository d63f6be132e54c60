// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace tevoro::lidar {

/// Cuts a frame that never ends, for models whose rule knows no longest frame: a sender that withholds the
/// frame end would otherwise fill the memory.
class FrameBound {
 public:
  /// Counts points of the frame in the making; `ended` when they close it. True when it has to be cut here.
  bool Exceeded(size_t points, bool ended) {
    points_ = ended ? 0 : points_ + points;
    if (points_ <= kMostPoints) return false;
    points_ = 0;
    return true;
  }

 private:
  /// A hundred NV2 frames, 16 MB of `Point`: no recording that lost a few frame ends comes near.
  static constexpr size_t kMostPoints = 1'000'000;

  size_t points_ = 0;
};

}  // namespace tevoro::lidar
