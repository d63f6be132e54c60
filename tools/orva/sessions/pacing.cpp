// SPDX-License-Identifier: Apache-2.0
#include "sessions/pacing.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace orva {
namespace {

/// 31 years: nobody waits for it, and it can be added to any clock. A recording may step from 1970 to today.
constexpr double kLongestNs = 1e18;

double Length(int64_t from_ns, int64_t to_ns, double rate) {
  const uint64_t recorded = static_cast<uint64_t>(to_ns) - static_cast<uint64_t>(from_ns);
  return std::min(static_cast<double>(recorded) / rate, kLongestNs);
}

}  // namespace

void LatenessCounts::Add(int64_t ns) {
  greatest_ = std::max(greatest_, ns);
  ++counts_[ClassOf(static_cast<uint64_t>(std::max<int64_t>(ns, 0)))];
  ++count_;
}

int64_t LatenessCounts::Quantile(double share) const {
  const auto wanted = static_cast<uint64_t>(std::ceil(share * static_cast<double>(count_)));
  uint64_t sum = 0;
  for (size_t i = 0; i < kClasses; ++i) {
    sum += counts_[i];
    if (sum >= wanted && sum > 0) return std::min(static_cast<int64_t>(UpperEnd(i)), greatest_);
  }
  return 0;
}

size_t LatenessCounts::ClassOf(uint64_t ns) {
  const auto bits = static_cast<unsigned>(std::bit_width(ns));
  if (bits <= kStepBits) return ns;  // exactly
  const unsigned shift = bits - kStepBits - 1;
  return (size_t{shift} << kStepBits) + (ns >> shift);
}

uint64_t LatenessCounts::UpperEnd(size_t index) {
  if (index < (size_t{2} << kStepBits)) return index;
  const size_t shift = (index >> kStepBits) - 1;
  const uint64_t top = (index & ((size_t{1} << kStepBits) - 1)) + (size_t{1} << kStepBits);
  return ((top + 1) << shift) - 1;
}

int64_t Pace::Due(int64_t recorded_ns, int64_t now) {
  if (!first_recorded_) {
    first_recorded_ = latest_recorded_ = recorded_ns;
    started_ = next_start_.value_or(now);
    packets_ = 0;
  }
  ++packets_;
  latest_recorded_ = std::max(latest_recorded_, recorded_ns);
  return started_ + static_cast<int64_t>(Length(*first_recorded_, latest_recorded_, rate_));
}

void Pace::Restart() {
  if (packets_ == 0) return;
  const double length = Length(*first_recorded_, latest_recorded_, rate_);
  const double distance = packets_ > 1 ? length / static_cast<double>(packets_ - 1) : 1e6;
  next_start_ = started_ + static_cast<int64_t>(length + distance);
  first_recorded_.reset();
}

}  // namespace orva
