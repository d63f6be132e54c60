// SPDX-License-Identifier: Apache-2.0
//
// Vectors of ORVA_LANES 32-bit values, in the compiler's own portable type, for the loops in
// packet_loops_body.h. Everything here has internal linkage and calls no function of another header: code
// compiled for a wide instruction set must never be merged with that of another object file.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace tevoro::lidar {
namespace {

static_assert(std::endian::native == std::endian::little, "fields are cut out of words as they are loaded");

inline constexpr size_t kQuad =
    4;  ///< 32-bit values in 16 bytes, the piece within which vectors are shuffled
inline constexpr size_t kLanes = ORVA_LANES;
inline constexpr size_t kHalf = kLanes / 2;

using Quad = uint32_t __attribute__((vector_size(16)));
using Words = uint32_t __attribute__((vector_size(4 * kLanes)));
using Ints = int32_t __attribute__((vector_size(4 * kLanes)));
using Floats = float __attribute__((vector_size(4 * kLanes)));
using Doubles = double __attribute__((vector_size(4 * kLanes)));  ///< half as many values

template <typename Vector>
inline Vector Load(const void* from) {
  Vector value;
  __builtin_memcpy(&value, from, sizeof(value));
  return value;
}

template <typename Vector>
inline void Store(const Vector& value, void* to) {
  __builtin_memcpy(to, &value, sizeof(value));
}

inline Words Bits(Floats value) {
  return reinterpret_cast<Words>(value);
}

/// `value` where the comparison holds, else 0.
inline Floats Select(Ints condition, Floats value) {
  return reinterpret_cast<Floats>(Bits(value) & reinterpret_cast<Words>(condition));
}

/// 0 where the comparison holds, else `value`.
inline Floats Clear(Ints condition, Floats value) {
  return reinterpret_cast<Floats>(Bits(value) & ~reinterpret_cast<Words>(condition));
}

inline Floats Magnitude(Floats value) {
  return reinterpret_cast<Floats>(Bits(value) & 0x7FFFFFFFU);
}

/// Fields have at most 24 bits, and machines convert signed integers to floating point faster than unsigned.
inline Floats ToFloats(Words value) {
  return __builtin_convertvector(reinterpret_cast<Ints>(value), Floats);
}

/// As many doubles as Floats has values, in two vectors.
struct DoublePair {
  Doubles low;
  Doubles high;
};
inline DoublePair operator+(DoublePair a, DoublePair b) {
  return {a.low + b.low, a.high + b.high};
}
inline DoublePair operator-(DoublePair a, DoublePair b) {
  return {a.low - b.low, a.high - b.high};
}
inline DoublePair operator+(DoublePair a, double b) {
  return {a.low + b, a.high + b};
}
inline DoublePair operator-(DoublePair a, double b) {
  return {a.low - b, a.high - b};
}
inline DoublePair operator*(DoublePair a, double b) {
  return {a.low * b, a.high * b};
}

// Conversions between the two precisions. They widen by way of memory, which is cheaper than shuffles, and
// narrow in registers, since a load that spans two stores would have to wait. g++ 12 takes the portable
// conversions to pieces, hence the machine's own beside them.
#if defined(__AVX__) && ORVA_LANES == 8
inline Doubles WidenHalf(const float* from) {
  return _mm256_cvtps_pd(_mm_loadu_ps(from));
}
inline Doubles WidenHalf(const uint32_t* from) {
  return _mm256_cvtepi32_pd(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}
inline Floats Narrow(DoublePair value) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(value.low)), _mm256_cvtpd_ps(value.high),
                              1);
}
#elif defined(__SSE2__) && ORVA_LANES == 4
inline Doubles WidenHalf(const float* from) {
  return _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from))));
}
inline Doubles WidenHalf(const uint32_t* from) {
  return _mm_cvtepi32_pd(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
}
inline Floats Narrow(DoublePair value) {
  return _mm_movelh_ps(_mm_cvtpd_ps(value.low), _mm_cvtpd_ps(value.high));
}
#elif defined(__ARM_NEON) && defined(__aarch64__) && ORVA_LANES == 4
inline Doubles WidenHalf(const float* from) {
  return vcvt_f64_f32(vld1_f32(from));
}
inline Doubles WidenHalf(const uint32_t* from) {
  return vcvtq_f64_u64(vmovl_u32(vld1_u32(from)));
}
inline Floats Narrow(DoublePair value) {
  return vcvt_high_f32_f64(vcvt_f32_f64(value.low), value.high);
}
#else
using HalfInts = int32_t __attribute__((vector_size(2 * kLanes)));
using HalfFloats = float __attribute__((vector_size(2 * kLanes)));
inline Doubles WidenHalf(const float* from) {
  return __builtin_convertvector(Load<HalfFloats>(from), Doubles);
}
inline Doubles WidenHalf(const uint32_t* from) {
  return __builtin_convertvector(Load<HalfInts>(from), Doubles);
}
inline Floats Narrow(DoublePair value) {
  Floats all;
  const HalfFloats halves[2] = {__builtin_convertvector(value.low, HalfFloats),
                                __builtin_convertvector(value.high, HalfFloats)};
  __builtin_memcpy(&all, halves, sizeof(all));
  return all;
}
#endif

/// The values from `from` on; integers below 2^31.
template <typename Value>
inline DoublePair Widen(const Value* from) {
  return {WidenHalf(from), WidenHalf(from + kHalf)};
}

/// Keeps the compiler from passing what was stored before to loads after it in registers.
inline void ReadBack() {
  asm volatile("" ::: "memory");
}

/// Every 16 bytes in another order: `order` gives for each byte where it comes from, or kZeroByte.
inline constexpr uint8_t kZeroByte = 0x80;
#if defined(__AVX2__) && ORVA_LANES == 8
inline constexpr bool kShufflesBytes = true;
inline Words ShuffleBytes(Words value, const uint8_t (&order)[16]) {
  return reinterpret_cast<Words>(_mm256_shuffle_epi8(
      reinterpret_cast<__m256i>(value),
      _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(order)))));
}
#elif defined(__ARM_NEON) && defined(__aarch64__) && ORVA_LANES == 4
inline constexpr bool kShufflesBytes = true;
inline Words ShuffleBytes(Words value, const uint8_t (&order)[16]) {
  return reinterpret_cast<Words>(vqtbl1q_u8(reinterpret_cast<uint8x16_t>(value), vld1q_u8(order)));
}
#else
inline constexpr bool kShufflesBytes = false;
// Unreached: whoever would call it asks kShufflesBytes first
inline Words ShuffleBytes(Words value, const uint8_t (&)[16]) {
  return value;
}
#endif

/// Is any bit set?
#if defined(__AVX__) && ORVA_LANES == 8
inline bool AnySet(Words value) {
  const auto bits = reinterpret_cast<__m256i>(value);
  return _mm256_testz_si256(bits, bits) == 0;
}
#else
inline bool AnySet(Words value) {
  using Longs = uint64_t __attribute__((vector_size(4 * kLanes)));
  const auto pairs = reinterpret_cast<Longs>(value);
  uint64_t bits = 0;
  for (size_t i = 0; i < kHalf; ++i) bits |= pairs[i];
  return bits != 0;
}
#endif

using LaneIndices = std::make_index_sequence<kLanes>;

/// Within every 16 bytes of two vectors: element `i` is number First + i / 2 * Step of one or the other.
template <size_t... Lane>
inline Words InterleaveLow(Words a, Words b, std::index_sequence<Lane...>) {
  return __builtin_shufflevector(a, b, (Lane / 4 * 4 + Lane % 4 / 2 + Lane % 2 * kLanes)...);
}
template <size_t... Lane>
inline Words InterleaveHigh(Words a, Words b, std::index_sequence<Lane...>) {
  return __builtin_shufflevector(a, b, (Lane / 4 * 4 + 2 + Lane % 4 / 2 + Lane % 2 * kLanes)...);
}
/// The lower or upper halves of the 16 bytes of `a`, then of `b`.
template <size_t... Lane>
inline Words JoinLow(Words a, Words b, std::index_sequence<Lane...>) {
  return __builtin_shufflevector(a, b, (Lane / 4 * 4 + Lane % 2 + Lane % 4 / 2 * kLanes)...);
}
template <size_t... Lane>
inline Words JoinHigh(Words a, Words b, std::index_sequence<Lane...>) {
  return __builtin_shufflevector(a, b, (Lane / 4 * 4 + 2 + Lane % 2 + Lane % 4 / 2 * kLanes)...);
}

/// The first word of every 16 bytes from `a`, the others from `b`.
template <size_t... Lane>
inline Words FirstWordOf(Words a, Words b, std::index_sequence<Lane...>) {
  return __builtin_shufflevector(a, b, (Lane + (Lane % 4 == 0 ? 0 : kLanes))...);
}
/// From every 16 bytes: first of `a`, first of `b`, last of `a`, last of `b`.
template <size_t... Lane>
inline Words JoinEnds(Words a, Words b, std::index_sequence<Lane...>) {
  return __builtin_shufflevector(a, b, (Lane / 4 * 4 + Lane % 4 / 2 * 3 + Lane % 2 * kLanes)...);
}

/// Four rows become four columns, in each 16 bytes of the vectors.
inline void Transpose(Words (&rows)[kQuad]) {
  constexpr LaneIndices kAll;
  const Words low01 = InterleaveLow(rows[0], rows[1], kAll);
  const Words high01 = InterleaveHigh(rows[0], rows[1], kAll);
  const Words low23 = InterleaveLow(rows[2], rows[3], kAll);
  const Words high23 = InterleaveHigh(rows[2], rows[3], kAll);
  rows[0] = JoinLow(low01, low23, kAll);
  rows[1] = JoinHigh(low01, low23, kAll);
  rows[2] = JoinLow(high01, high23, kAll);
  rows[3] = JoinHigh(high01, high23, kAll);
}

template <size_t... Lane>
inline Words Counting(std::index_sequence<Lane...>) {
  return Words{Lane...};
}

/// 16 bytes from each of `at(0)`, `at(4)`, ...: what belongs to measurements four apart stands in one vector,
/// so that Transpose puts the measurements in order.
template <typename At>
inline Words LoadQuads(const At& at) {
  if constexpr (kLanes == 4) {
    return Load<Words>(at(0));
  } else if constexpr (kLanes == 8) {
#if defined(__AVX2__)  // g++ 12 would load both halves and shuffle them
    return reinterpret_cast<Words>(_mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at(0)))),
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(at(4))), 1));
#else
    return __builtin_shufflevector(Load<Quad>(at(0)), Load<Quad>(at(4)), 0, 1, 2, 3, 4, 5, 6, 7);
#endif
  } else {
    Words value;
    for (size_t quad = 0; quad < kLanes / kQuad; ++quad)
      __builtin_memcpy(reinterpret_cast<char*>(&value) + 16 * quad, at(4 * quad), 16);
    return value;
  }
}

/// The reverse.
template <typename At>
inline void StoreQuads(Words value, const At& at) {
  if constexpr (kLanes == 4) {
    Store(value, at(0));
  } else if constexpr (kLanes == 8) {
    Store(Quad(__builtin_shufflevector(value, value, 0, 1, 2, 3)), at(0));
#if defined(__AVX2__)  // g++ 12 would shuffle the upper half down before it stores it
    Store(_mm256_extracti128_si256(reinterpret_cast<__m256i>(value), 1), at(4));
#else
    Store(Quad(__builtin_shufflevector(value, value, 4, 5, 6, 7)), at(4));
#endif
  } else {
    for (size_t quad = 0; quad < kLanes / kQuad; ++quad)
      __builtin_memcpy(at(4 * quad), reinterpret_cast<const char*>(&value) + 16 * quad, 16);
  }
}

}  // namespace
}  // namespace tevoro::lidar
