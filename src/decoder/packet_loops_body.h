// SPDX-License-Identifier: Apache-2.0
//
// The one source of the loops. An object file for an instruction set defines ORVA_LANES, includes this and
// names what it gets: see packet_loops_*.cpp.
//
// A loop works in stages over arrays of the packet's measurements: cut out the fields, compute the distances,
// project, write. Between the stages values pass through memory: that is how they change from vectors of
// float to half as many doubles without shuffles.
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

/// Where points stand on their way into the cloud. Not mounted, they never leave the registers.
template <size_t N>
struct Coordinates {
  float x[N];
  float y[N];
  float z[N];
  int32_t kept[N];  ///< masks

  /// Rotates and translates in double.
  void Mount(const double (*pose)[4]) {
    for (size_t i = 0; i < N; i += kHalf) {
      const Doubles px = LoadFloatsAsDoubles(x + i);
      const Doubles py = LoadFloatsAsDoubles(y + i);
      const Doubles pz = LoadFloatsAsDoubles(z + i);
      const auto row = [&](const double* m) { return m[0] * px + m[1] * py + m[2] * pz + m[3]; };
      StoreAsFloats(row(pose[0]), x + i);
      StoreAsFloats(row(pose[1]), y + i);
      StoreAsFloats(row(pose[2]), z + i);
    }
  }
};

/// Sines and cosines of a group's measurements. `limits` is NaN where an angle is out of limits.
struct Directions {
  Floats limits;
  Floats cos_azimuth;
  Floats sin_azimuth;
  Floats cos_elevation;
  Floats sin_elevation;
};

/// From final distances and `direction(i)` of the group that begins at `i` to points. A point out of limits
/// becomes (0, 0, 0): its distance or an angle. `echo(i)` are the last four bytes.
template <size_t N, typename Distance, typename DirectionOf, typename Echo>
inline void Place(const Distance& distance, const DirectionOf& direction, const Echo& echo,
                  const Placement& placement, const PointOutput& output) {
  auto* const points = static_cast<uint8_t*>(output.points);
  const size_t stride = output.stride;
  const Floats nearest = Floats{} + placement.min_distance;
  const Floats farthest = Floats{} + placement.max_distance;
  const auto project = [&](size_t i, const auto& take) {
    const Directions to = direction(i);
    const Floats d = distance(i);
    const Floats r = d * to.cos_elevation;
    const Ints inside = (nearest <= d) & (d <= farthest) & (to.limits == to.limits);
    // The sensor looks forward.
    take(Magnitude(to.cos_azimuth * r), to.sin_azimuth * Magnitude(r), d * to.sin_elevation, inside);
  };
  if (placement.pose == nullptr) {
    for (size_t i = 0; i < N; i += kLanes) {
      project(i, [&](Floats x, Floats y, Floats z, Ints inside) {
        StorePoints(Select(inside, x), Select(inside, y), Select(inside, z), echo(i), points + i * stride,
                    stride);
      });
    }
    return;
  }
  Coordinates<N> at;
  for (size_t i = 0; i < N; i += kLanes) {
    project(i, [&](Floats x, Floats y, Floats z, Ints inside) {
      Store(x, at.x + i);
      Store(y, at.y + i);
      Store(z, at.z + i);
      Store(inside, at.kept + i);
    });
  }
  at.Mount(placement.pose);
  for (size_t i = 0; i < N; i += kLanes) {
    const auto kept = Load<Ints>(at.kept + i);
    StorePoints(Select(kept, Load<Floats>(at.x + i)), Select(kept, Load<Floats>(at.y + i)),
                Select(kept, Load<Floats>(at.z + i)), echo(i), points + i * stride, stride);
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

/// A packet of a grid model on its way to points.
template <typename Model>
struct GridPacket {
  using Block = typename Model::Block;
  static constexpr size_t kBlocks = Block::kCount;

  uint32_t code[kBlocks];
  uint32_t echo[kBlocks];            ///< intensity (its low 16 bits) and label, as they stand in a point
  uint32_t time_of_flight[kBlocks];  ///< in sixty-fourths of a unit
  float square[kBlocks];             ///< terms of the distance correction
  float linear[kBlocks];
  float filter_intensity[kBlocks];
  float raw[kBlocks];       ///< metres
  float distance[kBlocks];  ///< metres, corrected
  // Room for the directions when the codes are scattered.
  float scattered[4][kBlocks];

  /// The fields, and what follows from them alone. True when the codes are one run.
  bool Unpack(const uint8_t* packet, const DistanceCalibration& calibration);
  void ComputeDistances(const DistanceCalibration& calibration);
  void GatherDirections(DirectionTable& table);
};

template <typename Model>
inline bool GridPacket<Model>::Unpack(const uint8_t* packet, const DistanceCalibration& calibration) {
  static_assert(Block::Code::kOffset == 0);
  const Words first_code = Words{} + packet[Block::kFirst] + packet[Block::kFirst + 1] * 256U;
  Words expected = first_code + Counting(LaneIndices());
  Words strays{};
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    const GridFields fields = LoadFields<Block>(packet + Block::kFirst + Block::kStride * i);
    strays |= fields.code ^ expected;
    expected += kLanes;
    const Floats ratio = ToFloats(fields.pulse_sum) / ToFloats(fields.divisor);
    Store(ratio * ratio * calibration.weight[2], square + i);
    Store(ratio * calibration.weight[0], linear + i);
    Store(ToFloats(fields.filter_intensity), filter_intensity + i);
    Store(fields.time_of_flight, time_of_flight + i);
    Store(fields.code, code + i);
    Store((fields.intensity & 0xFFFF) | (fields.code & 0xFF00) << 8, echo + i);
  }
  uint32_t any = 0;
  for (size_t lane = 0; lane < kLanes; ++lane) any |= strays[lane];
  return any == 0;
}

template <typename Model>
inline void GridPacket<Model>::ComputeDistances(const DistanceCalibration& calibration) {
  // The count is in sixty-fourths of a unit. A power of two scales without rounding, so the division may be
  // folded into the factor.
  constexpr double kUnitsPerCount = 1.645 / 64.0;
  constexpr double kOffset = 2.09;
  const double constant = calibration.weight[3];
  for (size_t i = 0; i < kBlocks; i += kHalf) {
    StoreAsFloats((LoadIntsAsDoubles(time_of_flight + i) * kUnitsPerCount - kOffset) * Model::kMetresPerUnit,
                  raw + i);
  }
  float scaled[kBlocks];
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    Store(Load<Floats>(raw + i) * calibration.weight[1], scaled + i);
  }
  for (size_t i = 0; i < kBlocks; i += kHalf) {
    // The products are float, the sum double, in this order. An exact 0 is never corrected, so the sign of
    // a correction of 0 does not matter.
    const Doubles correction = LoadFloatsAsDoubles(square + i) + LoadFloatsAsDoubles(linear + i) +
                               LoadFloatsAsDoubles(scaled + i) + constant;
    StoreAsFloats(LoadFloatsAsDoubles(raw + i) - correction, distance + i);
  }
}

template <typename Model>
inline void GridPacket<Model>::GatherDirections(DirectionTable& table) {
  for (size_t i = 0; i < kBlocks; ++i) {
    scattered[0][i] = table.cos_azimuth[code[i]];
    scattered[1][i] = table.sin_azimuth[code[i]];
    scattered[2][i] = table.cos_elevation[code[i]];
    scattered[3][i] = table.sin_elevation[code[i]];
  }
  table = {scattered[0], scattered[1], scattered[2], scattered[3]};
}

inline Floats FilterNear(const NearFilter& filter, Floats distance, Floats intensity) {
  const Ints very_near_echo = filter.very_near > distance;
  const Ints near_echo = ~very_near_echo & (filter.near > distance);
  const Ints weak = very_near_echo & (filter.threshold > intensity);
  const Ints faint =
      near_echo & (Magnitude(distance - filter.near) / filter.near * filter.strength > intensity);
  return Select(~(weak | faint), distance);
}

template <typename Model>
bool DecodeGrid(const GridLoopInput& input, const PointOutput& output, float* distances) {
  using Packet = GridPacket<Model>;
  constexpr size_t kBlocks = Packet::kBlocks;
  Packet packet;
  DirectionTable directions = input.directions;
  bool ended = false;
  // A sensor scans column by column, so most packets hold a run of codes, whose directions stand side by side
  // in the table.
  if (packet.Unpack(input.packet, input.distance)) {
    const uint32_t first = packet.code[0];
    directions = {directions.cos_azimuth + first, directions.sin_azimuth + first,
                  directions.cos_elevation + first, directions.sin_elevation + first};
    ended = first + input.start <= kFrameEndCode && kFrameEndCode < first + kBlocks;
  } else {
    packet.GatherDirections(directions);
    for (size_t i = input.start; i < kBlocks; ++i) ended |= packet.code[i] == kFrameEndCode;
  }
  packet.ComputeDistances(input.distance);
  Place<kBlocks>(
      [&](size_t i) {
        Floats distance = FilterNear(input.distance.filter, Load<Floats>(packet.distance + i),
                                     Load<Floats>(packet.filter_intensity + i));
        if constexpr (Model::kReportsSourceDistance) Store(distance, distances + i);
        if constexpr (Model::kRejectsNonPositiveRaw) {
          const Ints measured = Load<Floats>(packet.raw + i) > 0.0F;
          distance = reinterpret_cast<Floats>(Bits(distance) | reinterpret_cast<Words>(~measured));  // NaN
        }
        return distance;
      },
      [&](size_t i) {
        const auto cos_elevation = Load<Floats>(directions.cos_elevation + i);
        return Directions{cos_elevation, Load<Floats>(directions.cos_azimuth + i),
                          Load<Floats>(directions.sin_azimuth + i), cos_elevation,
                          Load<Floats>(directions.sin_elevation + i)};
      },
      [&](size_t i) { return Load<Words>(packet.echo + i); }, input.placement, output);
  return ended;
}

void DecodeLine(const LineLoopInput& input, const PointOutput& output) {
  using Model = NV2Model;
  constexpr size_t kBlocks = Model::kBlocks;
  uint32_t measurement[kBlocks];
  uint32_t code[kBlocks];
  float distance[kBlocks];
  const uint8_t* const first = input.packet + Model::kFirstMeasurement;
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    // 16 bytes hold two measurements, at their ends.
    static_assert(2 * Model::kMeasurementStride + 4 == 16);
    const auto load = [&](size_t k) {
      return LoadQuads([&](size_t quad) { return first + Model::kMeasurementStride * (i + k + quad); });
    };
    const Words words = JoinEnds(load(0), load(1), LaneIndices());
    Store(words, measurement + i);
    Store(words >> 16, code + i);
  }
  for (size_t i = 0; i < kBlocks; i += kHalf) {
    StoreAsFloats(LoadIntsAsDoubles(code + i) * Model::kMetresPerCode - Model::kOffset, distance + i);
  }
  const uint32_t label = uint32_t{input.packet[Model::Line::kOffset]} << 16;
  Place<kBlocks>(
      [&](size_t i) {
        const auto metres = Load<Floats>(distance + i);
        return Select(metres > 0.0F, metres);
      },
      [&](size_t i) {
        const auto cos_azimuth = Load<Floats>(input.cos_azimuth + i);
        return Directions{cos_azimuth, cos_azimuth, Load<Floats>(input.sin_azimuth + i),
                          Floats{} + input.cos_elevation, Floats{} + input.sin_elevation};
      },
      [&](size_t i) { return (Load<Words>(measurement + i) & 0xFFF) | label; }, input.placement, output);
}

constexpr PacketLoops LoopsNamed(const char* instruction_set) {
  return {instruction_set, DecodeGrid<TS4BModel>, DecodeGrid<TS6Model>, DecodeLine};
}

}  // namespace
}  // namespace tevoro::lidar
