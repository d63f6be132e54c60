// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_VIEW_PAGE_FRAME_H_
#define ORVA_TOOLS_VIEW_PAGE_FRAME_H_

#include <cstddef>

#include "view/frame.h"

namespace orva::view {

// A frame as the page receives it, little-endian: a header of 64 bytes, then one array behind the other.
//
//   0  4  "ORVF"                     28  12  float x, y, z: coordinates of code 0, metres
//   4  2  version, 1                 40  12  float x, y, z: metres from code to code
//   6  2  flags, bit 0: lines as     52   4  number of runs, 0 without bit 0
//         runs                       56   2  status word of the sensor
//   8  4  number of the frame        58   1  status byte
//  12  4  number of points N         59   1  0
//  16  8  double time, seconds       60   2  first temperature, hundredths of a degree Celsius, signed
//         since the epoch; 0: none   62   2  second temperature, likewise
//  24  4  0
//
//   x, y: low 16 bits of the code, N each; z: code, N; intensity, N (16 bits each)
//   laser line, either runs of 16-bit line and 16-bit number of points, or N single bytes
//   upper 4 bits of x (low half) and of y (high half), N bytes
//
// Steps are 1 mm as long as a frame spans no more than 1048 m in x and y and 65 m in z, else what divides the
// span by the number of codes. A coordinate is off by half a step at most. The code 0xFFFFF in x marks a
// measurement without a return. A frame of one of the sensors takes 9 bytes for a point, and 4 for each line;
// 10 bytes for a point where the lines are mixed.

constexpr std::size_t kPageHeaderSize = 64;
constexpr float kPageStep = 0.001F;  ///< metres

Bytes EncodePageFrame(const Cloud& cloud, std::uint32_t number, double time);

}  // namespace orva::view

#endif  // ORVA_TOOLS_VIEW_PAGE_FRAME_H_
