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

/// Of distances, metres.
struct Limits {
  float min;
  float max;
};

inline Ints InLimits(const Limits& limits, Floats d, const Directions& to) {
  return (limits.min <= d) & (d <= limits.max) & (to.limits == to.limits);
}

/// Where points stand on their way into the cloud when they are mounted.
template <size_t N>
struct alignas(kCacheLine) Coordinates {
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
[[gnu::always_inline]] inline void PlacePoints(const Placement& placement, const Distance distance,
                                               const DirectionOf direction, const uint32_t* echo,
                                               const PointOutput& output) {
  // Copies: the compiler sees that writing points does not change them.
  const Limits limits = {placement.min_distance, placement.max_distance};
  const size_t stride = output.stride;
  if (placement.mounted) {
    Coordinates<N> at;
    for (size_t i = 0; i < N; i += kLanes) {
      const Floats d = distance(i);
      const Directions to = direction(i);
      const Projected point(d, to);
      Store(point.x, at.x + i);
      Store(point.y, at.y + i);
      Store(point.z, at.z + i);
      Store(InLimits(limits, d, to), at.inside + i);
    }
    MountPoints(at, placement, echo, output);
    return;
  }
  auto* points = static_cast<uint8_t*>(output.points);
  for (size_t i = 0; i < N; i += kLanes, points += kLanes * stride) {
    const Floats d = distance(i);
    const Directions to = direction(i);
    const Projected point(d, to);
    const Ints inside = InLimits(limits, d, to);
    StorePoints(Select(inside, point.x), Select(inside, point.y), Select(inside, point.z),
                Load<Words>(echo + i), points, stride);
  }
}

/// A field of two or three bytes. The field's own function might be merged with that of another object file.
template <typename Field>
inline uint32_t Read(const uint8_t* base) {
  uint32_t value = 0;
  __builtin_memcpy(&value, base + Field::kOffset, Field::kEnd - Field::kOffset);
  return value;
}

/// Of a group of blocks, 16 bytes of each from `from` on, side by side.
template <typename Block>
inline void LoadRows(const uint8_t* from, Words (&rows)[kQuad]) {
  for (size_t row = 0; row < kQuad; ++row) {
    rows[row] = LoadQuads([&](size_t block) { return from + Block::kStride * (row + block); });
  }
}

/// Fields of a group of grid blocks, one to a word.
struct GridFields {
  Words code;  ///< and, in the upper half, the pulse divisor
  Words time_of_flight;
  Words echo;  ///< the point's last four bytes: intensity (its low 16 bits) and label
  Words pulse_sum;
};

/// Where in 16 bytes the fields of one block stand: bytes at `Block` offsets from 4 on are moved up by
/// `kGap`.
template <typename Block, size_t kGap>
inline constexpr uint8_t kFieldBytes[16] = {
    Block::Code::kOffset,
    Block::Code::kOffset + 1,
    Block::PulseDivisor::kOffset,
    Block::PulseDivisor::kOffset + 1,
    Block::TimeOfFlight::kOffset - kGap,
    Block::TimeOfFlight::kOffset - kGap + 1,
    Block::TimeOfFlight::kOffset - kGap + 2,
    kZeroByte,
    Block::Intensity::kOffset - kGap,
    Block::Intensity::kOffset - kGap + 1,
    Block::Code::kOffset + 1,
    kZeroByte,
    Block::PulseSum::kOffset - kGap,
    Block::PulseSum::kOffset - kGap + 1,
    Block::PulseSum::kOffset - kGap + 2,
    kZeroByte,
};

/// One field of a group of grid blocks, of three bytes.
template <typename Block, typename Field>
inline Words LoadField(const uint8_t* first) {
  static_assert(Field::kEnd - Field::kOffset == 3);
  constexpr size_t kFrom = Field::kEnd > 16 ? Field::kEnd - 16 : 0;
  constexpr uint8_t kAt = Field::kOffset - kFrom;
  Words rows[kQuad];
  LoadRows<Block>(first + kFrom, rows);
  if constexpr (kShufflesBytes) {
    // In each row the field goes where the row's block stands in the group.
    constexpr auto kByte = [](size_t row, size_t byte) -> uint8_t {
      return byte / 4 == row && byte % 4 < 3 ? static_cast<uint8_t>(kAt + byte % 4) : kZeroByte;
    };
    Words field{};
    for (size_t row = 0; row < kQuad; ++row) {
      uint8_t order[16];
      for (size_t byte = 0; byte < 16; ++byte) order[byte] = kByte(row, byte);
      field |= ShuffleBytes(rows[row], order);
    }
    return field;
  } else {
    Transpose(rows);
    constexpr uint32_t kShift = kAt % 4 * 8;
    Words field = rows[kAt / 4] >> kShift;
    if constexpr (kShift > 8) field |= rows[kAt / 4 + 1] << (32 - kShift);
    return field & 0xFFFFFF;
  }
}

inline Words EchoOf(Words intensity, Words code) {
  return (intensity & 0xFFFF) | (code & 0xFF00) << 8;
}

template <typename Block>
inline GridFields LoadFields(const uint8_t* first);

template <>
inline GridFields LoadFields<OrvaTS4BMsopBlock>(const uint8_t* first) {
  using Block = OrvaTS4BMsopBlock;
  // The fields span 21 bytes, but need no more than the first word and the last three.
  constexpr size_t kGap = Block::PulseSum::kEnd - 16;
  static_assert(kGap + 4 == Block::TimeOfFlight::kOffset && Block::PulseDivisor::kEnd == 4);
  Words head[kQuad];
  Words rows[kQuad];
  LoadRows<Block>(first, head);
  LoadRows<Block>(first + kGap, rows);
  for (size_t row = 0; row < kQuad; ++row) rows[row] = FirstWordOf(head[row], rows[row], LaneIndices());
  if constexpr (kShufflesBytes) {
    for (Words& row : rows) row = ShuffleBytes(row, kFieldBytes<Block, kGap>);
    Transpose(rows);
    return {rows[0], rows[1], rows[2], rows[3]};
  } else {
    static_assert(Block::TimeOfFlight::kEnd == Block::Intensity::kOffset);
    Transpose(rows);
    const Words intensity = rows[1] >> 24 | rows[2] << 8;
    return {rows[0], rows[1] & 0xFFFFFF, EchoOf(intensity, rows[0]), rows[3] >> 8};
  }
}

template <>
inline GridFields LoadFields<OrvaTS6MsopBlock>(const uint8_t* first) {
  using Block = OrvaTS6MsopBlock;
  Words rows[kQuad];
  LoadRows<Block>(first, rows);
  if constexpr (kShufflesBytes) {
    for (Words& row : rows) row = ShuffleBytes(row, kFieldBytes<Block, 0>);
    Transpose(rows);
    return {rows[0], rows[1], rows[2], rows[3]};
  } else {
    static_assert(Block::TimeOfFlight::kOffset == 6 && Block::Intensity::kOffset == 12);
    static_assert(std::is_same_v<Block::PulseSum, Block::Intensity>);
    Transpose(rows);
    return {rows[0], rows[1] >> 16 | (rows[2] & 0xFF) << 16, EchoOf(rows[3], rows[0]), rows[3] & 0xFFFFFF};
  }
}

/// A packet of a grid model on its way to points. The stages are functions of their own: inlined into one
/// another, compilers keep what passes between them in registers and run out of these.
template <typename Model>
struct alignas(kCacheLine) GridPacket {
  using Block = typename Model::Block;
  static constexpr size_t kBlocks = Block::kCount;

  uint32_t echo[kBlocks];            ///< as it stands in a point
  uint32_t time_of_flight[kBlocks];  ///< in sixty-fourths of a unit
  float square[kBlocks];             ///< terms of the distance correction
  float linear[kBlocks];
  float raw[kBlocks];       ///< metres
  float scale[kBlocks];     ///< a term of the correction
  float distance[kBlocks];  ///< metres, corrected
  bool ended;               ///< a block ends the frame
  bool near;                ///< a distance is within the near filter's reach
  bool run;                 ///< the codes count up
  float scattered[4][kBlocks];

  [[gnu::noinline]] void Unpack(const uint8_t* packet, const DistanceCalibration& calibration);
  [[gnu::noinline]] void ComputeDistances(const DistanceCalibration& calibration);
  [[gnu::noinline]] void RemoveNear(const uint8_t* packet, const NearFilter& filter);
  [[gnu::noinline]] DirectionTable GatherDirections(const uint8_t* packet, const DirectionTable& table);
  [[gnu::noinline]] void Place(const DirectionTable& directions, const Placement& placement,
                               const PointOutput& output, float* distances);
};

/// Cuts out the fields, and what follows from them alone.
template <typename Model>
void GridPacket<Model>::Unpack(const uint8_t* packet, const DistanceCalibration& calibration) {
  const uint32_t first_code = Read<typename Block::Code>(packet + Block::kFirst);
  const float weight[] = {calibration.weight[0], calibration.weight[2]};
  Words expected = Counting(LaneIndices()) + first_code;
  Words strays{};
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    const GridFields fields = LoadFields<Block>(packet + Block::kFirst + Block::kStride * i);
    strays |= fields.code ^ expected;
    expected += kLanes;
    Store(fields.echo, echo + i);
    Store(fields.time_of_flight, time_of_flight + i);
    const Floats ratio = ToFloats(fields.pulse_sum) / ToFloats(fields.code >> 16);
    Store(ratio * ratio * weight[1], square + i);
    Store(ratio * weight[0], linear + i);
  }
  run = !AnySet(strays & 0xFFFF) && first_code + kBlocks <= 0x10000;
  ended = run && (kFrameEndCode - first_code) < kBlocks;
}

template <typename Model>
void GridPacket<Model>::ComputeDistances(const DistanceCalibration& calibration) {
  // The count is in sixty-fourths of a unit. A power of two scales without rounding, so the division may be
  // folded into the factor.
  constexpr double kUnitsPerCount = 1.645 / 64.0;
  constexpr double kOffset = 2.09;
  const float weight = calibration.weight[1];
  const double constant = calibration.weight[3];
  const NearFilter& filter = calibration.filter;
  // The farther one; one that is NaN filters nothing itself.
  const bool near_reaches_farther = filter.near > filter.very_near || filter.very_near != filter.very_near;
  const float reach = near_reaches_farther ? filter.near : filter.very_near;
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    const Floats metres =
        Narrow((Widen(time_of_flight + i) * kUnitsPerCount - kOffset) * Model::kMetresPerUnit);
    Store(metres, raw + i);
    Store(metres * weight, scale + i);
  }
  ReadBack();
  Ints within{};
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    // The products are float, the sum double, in this order. No raw distance is 0, so the sign of a
    // correction of 0 does not matter.
    const DoublePair correction = Widen(square + i) + Widen(linear + i) + Widen(scale + i) + constant;
    const Floats metres = Narrow(Widen(raw + i) - correction);
    within |= metres < reach;
    Store(metres, distance + i);
  }
  near = AnySet(reinterpret_cast<Words>(within));
}

/// The directions of blocks in no order, and whether one of them ends the frame. A sensor scans column by
/// column, so most packets hold a run of codes, whose directions stand side by side in the table.
template <typename Model>
DirectionTable GridPacket<Model>::GatherDirections(const uint8_t* packet, const DirectionTable& table) {
  for (size_t i = 0; i < kBlocks; ++i) {
    const uint32_t code = Read<typename Block::Code>(packet + Block::kFirst + Block::kStride * i);
    ended |= code == kFrameEndCode;
    scattered[0][i] = table.cos_azimuth[code];
    scattered[1][i] = table.sin_azimuth[code];
    scattered[2][i] = table.cos_elevation[code];
    scattered[3][i] = table.sin_elevation[code];
  }
  return {scattered[0], scattered[1], scattered[2], scattered[3]};
}

/// Sets distances to 0 where the near filter removes the point.
template <typename Model>
void GridPacket<Model>::RemoveNear(const uint8_t* packet, const NearFilter& given) {
  const NearFilter filter = given;
  for (size_t i = 0; i < kBlocks; i += kLanes) {
    const auto metres = Load<Floats>(distance + i);
    const Floats brightness = ToFloats(
        LoadField<Block, typename Block::FilterIntensity>(packet + Block::kFirst + Block::kStride * i));
    const Ints very_near_echo = filter.very_near > metres;
    const Ints near_echo = ~very_near_echo & (filter.near > metres);
    const Ints weak = very_near_echo & (filter.threshold > brightness);
    const Ints faint =
        near_echo & (Magnitude(metres - filter.near) / filter.near * filter.strength > brightness);
    Store(Clear(weak | faint, metres), distance + i);
  }
}

/// Projects and writes.
template <typename Model>
void GridPacket<Model>::Place(const DirectionTable& directions, const Placement& placement,
                              const PointOutput& output, float* distances) {
  if constexpr (Model::kReportsSourceDistance) __builtin_memcpy(distances, distance, sizeof(distance));
  PlacePoints<kBlocks>(
      placement,
      [this](size_t i) {
        auto d = Load<Floats>(distance + i);
        if constexpr (Model::kRejectsNonPositiveRaw) {
          const Ints rejected = ~(Load<Floats>(raw + i) > 0.0F);
          d = reinterpret_cast<Floats>(Bits(d) | reinterpret_cast<Words>(rejected));  // NaN
        }
        return d;
      },
      [at = directions](size_t i) {
        const auto cos_elevation = Load<Floats>(at.cos_elevation + i);
        return Directions{cos_elevation, Load<Floats>(at.cos_azimuth + i), Load<Floats>(at.sin_azimuth + i),
                          cos_elevation, Load<Floats>(at.sin_elevation + i)};
      },
      echo, output);
}

/// Asks for what the stages are going to read, so that it is on its way while the first one works: the
/// packet, and directions for a run of codes, which lie in four tables. Part of its caller, for compilers
/// leave out a function that does nothing else.
template <typename Model>
[[gnu::always_inline]] inline void Prefetch(const GridLoopInput& input) {
  using Block = typename Model::Block;
  constexpr size_t kStep = 2 * kCacheLine;  // the other half of a pair follows by itself, or costs little
  for (size_t at = 0; at < Block::kFirst + Block::kStride * Block::kCount; at += kStep) {
    __builtin_prefetch(input.packet + at);
  }
  constexpr uint32_t kLastRun = 0x10000 - Block::kCount;
  const uint32_t code = Read<typename Block::Code>(input.packet + Block::kFirst);
  const uint32_t first = code < kLastRun ? code : kLastRun;
  for (size_t i = 0; i < Block::kCount; i += kCacheLine / sizeof(float)) {
    __builtin_prefetch(input.directions.cos_azimuth + first + i);
    __builtin_prefetch(input.directions.sin_azimuth + first + i);
    __builtin_prefetch(input.directions.cos_elevation + first + i);
    __builtin_prefetch(input.directions.sin_elevation + first + i);
  }
}

template <typename Model>
bool DecodeGrid(const GridLoopInput& input, const PointOutput& output, float* distances) {
  Prefetch<Model>(input);
  GridPacket<Model> packet;
  packet.Unpack(input.packet, input.distance);
  packet.ComputeDistances(input.distance);
  if (packet.near) packet.RemoveNear(input.packet, input.distance.filter);
  if (packet.run) {
    const DirectionTable& table = input.directions;
    const uint32_t code = Read<typename Model::Block::Code>(input.packet + Model::Block::kFirst);
    packet.Place({table.cos_azimuth + code, table.sin_azimuth + code, table.cos_elevation + code,
                  table.sin_elevation + code},
                 input.placement, output, distances);
  } else {
    packet.Place(packet.GatherDirections(input.packet, input.directions), input.placement, output, distances);
  }
  return packet.ended;
}

/// NV2's line on its way to points.
struct alignas(kCacheLine) LinePacket {
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
      [&input](size_t i) {
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

consteval PacketLoops LoopsNamed(const char* instruction_set) {
  return {instruction_set, DecodeGrid<TS4BModel>, DecodeGrid<TS6Model>, DecodeLine};
}

}  // namespace
}  // namespace tevoro::lidar
