// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

namespace orva::sim {

/// Random numbers that are the same with every compiler and standard library: the generator is SplitMix64,
/// the distributions are written out here. Cheap to make, so that every packet, beam or IMU sample can have
/// a stream of its own and does not depend on what was simulated before it.
class Random {
 public:
  explicit Random(uint64_t seed, uint64_t stream = 0) : state_(Mix(seed) ^ Mix(~stream)) {}

  uint64_t Next() { return Mix(state_ += kGolden); }

  /// In [0, 1).
  double Uniform() { return static_cast<double>(Next() >> 11) * 0x1p-53; }

  double Uniform(double low, double high) { return low + (high - low) * Uniform(); }

  /// Mean 0, standard deviation 1, by Box and Muller.
  double Normal() {
    const double radius = std::sqrt(-2.0 * std::log(1.0 - Uniform()));
    return radius * std::cos(2.0 * std::numbers::pi * Uniform());
  }

 private:
  static constexpr uint64_t kGolden = 0x9E3779B97F4A7C15;

  static uint64_t Mix(uint64_t z) {
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
  }

  uint64_t state_;
};

}  // namespace orva::sim
