// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_VIEW_FRAME_H_
#define ORVA_TOOLS_VIEW_FRAME_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "orva_driver.h"

namespace orva::view {

using Cloud = PointCloud<PointTime>;
using Bytes = std::vector<std::uint8_t>;

/// One frame on its way to the pages. All pages share it; nobody changes it.
struct Frame {
  std::uint32_t number = 0;  ///< in a recording; live: counted from the start
  double captured = 0.0;     ///< when its first packet was received, seconds since the epoch
  std::shared_ptr<const Cloud> cloud;
  std::shared_ptr<const Bytes> page_bytes;  ///< see page_frame.h
  std::vector<ImuMsg> imu = {};             ///< of a recording: samples since the frame before
};
using FramePtr = std::shared_ptr<const Frame>;

}  // namespace orva::view

#endif  // ORVA_TOOLS_VIEW_FRAME_H_
