// SPDX-License-Identifier: Apache-2.0
//
// The one source of the loops. An object file for an instruction set defines ORVA_LANES, includes this and
// names what it gets: see packet_loops_*.cpp.
//
// A loop takes a group of measurements from the packet to its points: cut out the fields, compute the
// distances, project, write. On the way between float and half as many doubles values pass through memory,
// which costs no shuffle.
#pragma once

#include <type_traits>

#include "decoder/decoder_nv2.h"
#include "decoder/decoder_ts4b.h"
#include "decoder/decoder_ts6.h"
#include "decoder/packet_loops.h"
#include "decoder/vectors.h"

namespace tevoro::lidar {
namespace {

/// The 16 bytes of one group's points, four blocks at a time.
inline void StorePoints(Floats x, Floats y, Floats z, Words echo, uint8_t* first, size_t stride) {
  Words rows[kQuad] = {Bits(x), Bits(y), Bits(z), echo};
  Transpose(rows);
  for (size_t row = 0; row < kQuad; ++row) {
    StoreQuads(rows[row], [&](size_t point) { return first + (row + point) * stride; });
  }
}

/// Sines and cosines of a group's measurements. `limits` is NaN where an angle is out of limits.
struct Directions {
  Floats limits;
  Floats cos_azimuth;
  Floats sin_azimuth;
  Floats cos_elevation;
  Floats sin_elevation;
};

/// Projects a group: sines and cosines times distances. The sensor looks forward.
struct Projected {
  Floats x;
  Floats y;
  Floats z;

  Projected(Floats d, const Directions& to) {
    const Floats r = d * to.cos_elevation;
    x = Magnitude(to.cos_azimuth * r);
    y = to.sin_azimuth * Magnitude(r);
    z = d * to.sin_elevation;
  }
};

inline Ints InLimits(const Placement& placement, Floats d, const Directions& to) {
  return (placement.min_distance <= d) & (d <= placement.max_distance) & (to.limits == to.limits);
}

/// Where points stand on their way into the cloud when they are mounted.
template <size_t N>
struct Coordinates {
  float x[N];
  float y[N];
  float z[N];
  int32_t inside[N];  ///< masks
};

/// Rotates and translates in double, and writes the points. `echo`: their last four bytes, intensity and
/// label.
template <size_t N>
[[gnu::noinline]] void MountPoints(const Coordinates<N>& at, const Placement& given, const uint32_t* echo,
                                   const PointOutput& output) {
  const Placement placement = given;  // a copy: the compiler sees that writing points does not change it
  auto* points = static_cast<uint8_t*>(output.points);
  for (size_t i = 0; i < N; i += kLanes, points += kLanes * output.stride) {
    const DoublePair x = Widen(at.x + i);
    const DoublePair y = Widen(at.y + i);
    const DoublePair z = Widen(at.z + i);
    const auto inside = Load<Ints>(at.inside + i);
    const auto row = [&](const double* m) {
      return Select(inside, Narrow(x * m[0] + y * m[1] + z * m[2] + m[3]));
    };
    StorePoints(row(placement.pose[0]), row(placement.pose[1]), row(placement.pose[2]), Load<Words>(echo + i),
                points, output.stride);
  }
}

/// From final distances, `distance(i)`, and directions of the group that begins at `i` to points. A point out
/// of limits becomes (0, 0, 0): its distance or an angle.
template <size_t N, typename Distance, typename DirectionOf>
inline void PlacePoints(const Placement& placement, const Distance& distance, const DirectionOf& direction,
                        const uint32_t* echo, const PointOutput& output) {
  if (placement.mounted) {
    Coordinates<N> at;
    for (size_t i = 0; i < N; i += kLanes) {
      const Floats d = distance(i);
      const Directions to = direction(i);
      const Projected point(d, to);
      Store(point.x, at.x + i);
      Store(point.y, at.y + i);
      Store(point.z, at.z + i);
      Store(InLimits(placement, d, to), at.inside + i);
    }
    MountPoints(at, placement, echo, output);
    return;
  }
  auto* points = static_cast<uint8_t*>(output.points);
  for (size_t i = 0; i < N; i += kLanes, points += kLanes * output.stride) {
    const Floats d = distance(i);
    const Directions to = direction(i);
    const Projected point(d, to);
    const Ints inside = InLimits(placement, d, to);
    StorePoints(Select(inside, point.x), Select(inside, point.y), Select(inside, point.z),
                Load<Words>(echo + i), points, output.stride);
  }
}

/// The words of a group of blocks in which a model's fields lie, side by side.
template <size_t Stride>
inline void LoadBlocks(const uint8_t* first, Words (&words)[kQuad]) {
  for (size_t row = 0; row < kQuad; ++row) {
    words[row] = LoadQuads([&](size_t block) { return first + Stride * (row + block); });
  }
}

/// Fields of a group of grid blocks.
struct GridFields {
  Words code;
  Words divisor;
  Words time_of_flight;
  Words intensity;
  Words filter_intensity;
  Words pulse_sum;
};

template <typename Block>
inline GridFields LoadFields(const uint8_t* first);

template <>
inline GridFields LoadFields<OrvaTS4BMsopBlock>(const uint8_t* first) {
  using Block = OrvaTS4BMsopBlock;
  // The fields span 21 bytes, but need no more than the first word and the last three.
  constexpr size_t kLater = Block::PulseSum::kEnd - 16;
  Words head[kQuad];
  Words words[kQuad];
  LoadBlocks<Block::kStride>(first, head);
  LoadBlocks<Block::kStride>(first + kLater, words);
  for (size_t row = 0; row < kQuad; ++row) words[row] = FirstWordOf(head[row], words[row], LaneIndices());
  Transpose(words);
  static_assert(kLater + 4 == Block::TimeOfFlight::kOffset &&
                Block::TimeOfFlight::kEnd == Block::Intensity::kOffset);
  static_assert(Block::PulseSum::kOffset == kLater + 13);
  const Words intensity = words[1] >> 24 | (words[2] & 0xFFFF) << 8;
  return {words[0] & 0xFFFF, words[0] >> 16, words[1] & 0xFFFFFF, intensity, intensity, words[3] >> 8};
}

template <>
inline GridFields LoadFields<OrvaTS6MsopBlock>(const uint8_t* first) {
  using Block = OrvaTS6MsopBlock;
  static_assert(Block::TimeOfFlight::kOffset == 6 && Block::FilterIntensity::kOffset == 9);
  static_assert(Block::Intensity::kOffset == 12 && std::is_same_v<Block::PulseSum, Block::Intensity>);
  Words words[kQuad];
  LoadBlocks<Block::kStride>(first, words);
  Transpose(words);
  const Words intensity = words[3] & 0xFFFFFF;
  return {words[0] & 0xFFFF, words[0] >> 16, words[1] >> 16 | (words[2] & 0xFF) << 16,
          intensity,         words[2] >> 8,  intensity};
}

/// A packet of a grid model on its way to points. The stages are functions of their own: inlined into one
/// another, compilers keep what passes between them in registers and run out of these.
template <typename Model>
struct GridPacket {
  using Block = typename Model::Block;
  static constexpr size_t kBlocks = Block::kCount;

  uint32_t code[kBlocks];
  uint32_t echo[kBlocks];            ///< intensity (its low 16 bits) and label, as they stand in a point
  uint32_t time_of_flight[kBlocks];  ///< in sixty-fourths of a unit
  float filter_intensity[kBlocks];
  float square[kBlocks];  ///< terms of the distance correction
  float linear[kBlocks];
  float raw[kBlocks];       ///< metres
  float scale[kBlocks];     ///< a term of the correction
  float distance[kBlocks];  ///< metres, corrected
  bool ended;               ///< a block ends the frame
  bool run;                 ///< the codes count up
  float scattered[4][kBlocks];

  [[gnu::noinline]] void Unpack(const uint8_t* packet, const DistanceCalibration& calibration);
  [[gnu::noinline]] void ComputeDistances(const DistanceCalibration& calibration);
  [[gnu::noinline]] DirectionTable DirectionsOf(const DirectionTable& table);
  [[gnu::noinline]] void Place(const DirectionTable& table, const NearFilter& near,
                               const Placement& placement, const PointOutput& output, float* distances);
};

/// Cuts out the fields, and what follows from them alone.
template <typename Model>
void GridPacket<Model>::Unpack(const uint8_t* packet, const DistanceCalibration& calibration) {
  static_assert(Block::Code::kOffset == 0);
  const uint32_t first_code = packet[Block::kFirst] + packet[Block::kFirst + 1] * 256U;
  Words expected = Counting(LaneIndices()) + first_code;
  Words strays{};
  Words ends{};
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    const GridFields fields = LoadFields<Block>(packet + Block::kFirst + Block::kStride * i);
    strays |= fields.code ^ expected;
    expected += kLanes;
    ends |= reinterpret_cast<Words>(fields.code == kFrameEndCode);
    Store(fields.code, code + i);
    Store((fields.intensity & 0xFFFF) | (fields.code & 0xFF00) << 8, echo + i);
    Store(fields.time_of_flight, time_of_flight + i);
    Store(ToFloats(fields.filter_intensity), filter_intensity + i);
    const Floats ratio = ToFloats(fields.pulse_sum) / ToFloats(fields.divisor);
    Store(ratio * ratio * calibration.weight[2], square + i);
    Store(ratio * calibration.weight[0], linear + i);
  }
  ended = AnySet(ends);
  run = !AnySet(strays);
}

template <typename Model>
void GridPacket<Model>::ComputeDistances(const DistanceCalibration& calibration) {
  // The count is in sixty-fourths of a unit. A power of two scales without rounding, so the division may be
  // folded into the factor.
  constexpr double kUnitsPerCount = 1.645 / 64.0;
  constexpr double kOffset = 2.09;
  const float weight = calibration.weight[1];
  const double constant = calibration.weight[3];
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    const Floats metres =
        Narrow((Widen(time_of_flight + i) * kUnitsPerCount - kOffset) * Model::kMetresPerUnit);
    Store(metres, raw + i);
    Store(metres * weight, scale + i);
  }
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    // The products are float, the sum double, in this order. No raw distance is 0, so the sign of a
    // correction of 0 does not matter.
    const DoublePair correction = Widen(square + i) + Widen(linear + i) + Widen(scale + i) + constant;
    Store(Narrow(Widen(raw + i) - correction), distance + i);
  }
}

/// The directions of the blocks. A sensor scans column by column, so most packets hold a run of codes, whose
/// directions stand side by side in the table.
template <typename Model>
DirectionTable GridPacket<Model>::DirectionsOf(const DirectionTable& table) {
  if (run) {
    return {table.cos_azimuth + code[0], table.sin_azimuth + code[0], table.cos_elevation + code[0],
            table.sin_elevation + code[0]};
  }
  for (size_t i = 0; i < kBlocks; ++i) {
    scattered[0][i] = table.cos_azimuth[code[i]];
    scattered[1][i] = table.sin_azimuth[code[i]];
    scattered[2][i] = table.cos_elevation[code[i]];
    scattered[3][i] = table.sin_elevation[code[i]];
  }
  return {scattered[0], scattered[1], scattered[2], scattered[3]};
}

inline Floats FilterNear(const NearFilter& filter, Floats distance, Floats intensity) {
  const Ints very_near_echo = filter.very_near > distance;
  const Ints near_echo = ~very_near_echo & (filter.near > distance);
  const Ints weak = very_near_echo & (filter.threshold > intensity);
  const Ints faint =
      near_echo & (Magnitude(distance - filter.near) / filter.near * filter.strength > intensity);
  return Clear(weak | faint, distance);
}

/// Filters, projects and writes.
template <typename Model>
void GridPacket<Model>::Place(const DirectionTable& directions, const NearFilter& near,
                              const Placement& placement, const PointOutput& output, float* distances) {
  const NearFilter filter = near;
  PlacePoints<kBlocks>(
      placement,
      [&](size_t i) {
        Floats d = FilterNear(filter, Load<Floats>(distance + i), Load<Floats>(filter_intensity + i));
        if constexpr (Model::kReportsSourceDistance) Store(d, distances + i);
        if constexpr (Model::kRejectsNonPositiveRaw) {
          const Ints rejected = ~(Load<Floats>(raw + i) > 0.0F);
          d = reinterpret_cast<Floats>(Bits(d) | reinterpret_cast<Words>(rejected));  // NaN
        }
        return d;
      },
      [&](size_t i) {
        const auto cos_elevation = Load<Floats>(directions.cos_elevation + i);
        return Directions{cos_elevation, Load<Floats>(directions.cos_azimuth + i),
                          Load<Floats>(directions.sin_azimuth + i), cos_elevation,
                          Load<Floats>(directions.sin_elevation + i)};
      },
      echo, output);
}

template <typename Model>
bool DecodeGrid(const GridLoopInput& input, const PointOutput& output, float* distances) {
  GridPacket<Model> packet;
  packet.Unpack(input.packet, input.distance);
  packet.ComputeDistances(input.distance);
  packet.Place(packet.DirectionsOf(input.directions), input.distance.filter, input.placement, output,
               distances);
  return packet.ended;
}

/// NV2's line on its way to points.
struct LinePacket {
  static constexpr size_t kBlocks = NV2Model::kBlocks;

  uint32_t echo[kBlocks];
  uint32_t code[kBlocks];  ///< of the distance

  [[gnu::noinline]] void Unpack(const uint8_t* packet);
  [[gnu::noinline]] void Place(const LineLoopInput& input, const PointOutput& output);
};

void LinePacket::Unpack(const uint8_t* packet) {
  const uint8_t* const first = packet + NV2Model::kFirstMeasurement;
  const uint32_t label = uint32_t{packet[NV2Model::Line::kOffset]} << 16;
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    // 16 bytes hold two measurements, at their ends.
    static_assert(2 * NV2Model::kMeasurementStride + 4 == 16);
    const auto load = [&](size_t k) {
      return LoadQuads([&](size_t quad) { return first + NV2Model::kMeasurementStride * (i + k + quad); });
    };
    const Words measurement = JoinEnds(load(0), load(1), LaneIndices());
    Store((measurement & 0xFFF) | label, echo + i);
    Store(measurement >> 16, code + i);
  }
}

void LinePacket::Place(const LineLoopInput& given, const PointOutput& output) {
  const LineLoopInput input = given;
  PlacePoints<kBlocks>(
      input.placement,
      [&](size_t i) {
        const Floats d = Narrow(Widen(code + i) * NV2Model::kMetresPerCode - NV2Model::kOffset);
        return Select(d > 0.0F, d);
      },
      [&](size_t i) {
        const auto cos_azimuth = Load<Floats>(input.cos_azimuth + i);
        return Directions{cos_azimuth, cos_azimuth, Load<Floats>(input.sin_azimuth + i),
                          Floats{} + input.cos_elevation, Floats{} + input.sin_elevation};
      },
      echo, output);
}

void DecodeLine(const LineLoopInput& input, const PointOutput& output) {
  LinePacket packet;
  packet.Unpack(input.packet);
  packet.Place(input, output);
}

constexpr PacketLoops LoopsNamed(const char* instruction_set) {
  return {instruction_set, DecodeGrid<TS4BModel>, DecodeGrid<TS6Model>, DecodeLine};
}

}  // namespace
}  // namespace tevoro::lidar
