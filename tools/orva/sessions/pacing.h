// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_PACING_H_
#define ORVA_TOOLS_SESSIONS_PACING_H_

#include <array>
#include <cstdint>
#include <optional>

namespace orva {

/// How late things came, in classes that are 3 % wide, so that any number of them needs little memory.
class LatenessCounts {
 public:
  void Add(int64_t ns);
  /// Nanoseconds that `share` of the counts (0 to 1) do not exceed; 0 where nothing was counted.
  int64_t Quantile(double share) const;
  int64_t greatest() const { return greatest_; }

 private:
  static constexpr unsigned kStepBits = 5;  ///< classes for each doubling, as a power of two
  static constexpr size_t kClasses = size_t{64} << kStepBits;
  static size_t ClassOf(uint64_t ns);
  static uint64_t UpperEnd(size_t index);

  std::array<uint64_t, kClasses> counts_{};
  uint64_t count_ = 0;
  int64_t greatest_ = 0;
};

/// When the packets of a recording are due again. Its clock may stand still or go back: then they follow one
/// another at once.
class Pace {
 public:
  /// `rate` above 1 is faster than the recording.
  explicit Pace(double rate) : rate_(rate) {}

  /// On the steady clock, never before what was due before. The first packet is due now.
  int64_t Due(int64_t recorded_ns, int64_t now);
  /// The recording begins anew: its first packet is due a mean distance after its last.
  void Restart();

 private:
  const double rate_;
  std::optional<int64_t> first_recorded_{};
  int64_t latest_recorded_ = 0;
  int64_t started_ = 0;
  uint64_t packets_ = 0;
  std::optional<int64_t> next_start_{};
};

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_PACING_H_
