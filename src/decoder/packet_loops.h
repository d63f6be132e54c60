// SPDX-License-Identifier: Apache-2.0
//
// The loops over a packet's measurements, compiled once for every instruction set that is worth it and chosen
// at run time. Nothing but plain data passes in and out, so that the code for a wide instruction set stays in
// its own object file.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tevoro::lidar {

/// What the loops read and write by vectors begins at a multiple of this, so that none lies across two lines.
inline constexpr size_t kCacheLine = 64;

/// Sines and cosines by grid code, side by side for the loops.
struct DirectionTable {
  const float* cos_azimuth;
  const float* sin_azimuth;
  const float* cos_elevation;  ///< NaN where azimuth or elevation is out of limits
  const float* sin_elevation;
};

/// What every loop needs to know of limits and mounting.
struct Placement {
  float min_distance;  ///< metres
  float max_distance;  ///< metres
  bool mounted;
  double pose[3][4];  ///< rotation and, in the last column, translation
};

/// Removes weak echoes close to the sensor, where dust and the window scatter. Distances in metres; -infinity
/// where the filter is off: nothing is then near.
struct NearFilter {
  float strength;
  float near;
  float threshold;  ///< intensity that a very near echo must reach
  float very_near;
};

/// Calibration of a unit's distances.
struct DistanceCalibration {
  float weight[4];  ///< of pulse ratio, raw distance, pulse ratio squared; constant term
  NearFilter filter;
};

/// Where a loop puts the points of a packet: the 16 bytes that all kinds of points open with, `stride` bytes
/// apart.
struct PointOutput {
  void* points;
  size_t stride;
};

struct GridLoopInput {
  const uint8_t* packet;
  DirectionTable directions;
  DistanceCalibration distance;
  Placement placement;
};

struct LineLoopInput {
  const uint8_t* packet;
  const float* cos_azimuth;  ///< by measurement; NaN where out of limits
  const float* sin_azimuth;
  float cos_elevation;
  float sin_elevation;
  Placement placement;
};

/// A set of loops over all measurements of a packet. The grid models' say whether one of them ends the frame.
struct PacketLoops {
  const char* instruction_set;
  bool (*ts4b)(const GridLoopInput&, const PointOutput&, float* distances);
  bool (*ts6)(const GridLoopInput&, const PointOutput&, float* distances);
  void (*nv2)(const LineLoopInput&, const PointOutput&);
};

/// The widest set that this machine has. `ORVA_ISA=baseline` in the environment, read once, asks for the one
/// that every machine has: for tests, measurements and reports of faults.
const PacketLoops& ChoosePacketLoops();

}  // namespace tevoro::lidar
