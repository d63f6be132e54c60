// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace orva::soak {

/// One second of a soak run.
struct Sample {
  double seconds = 0.0;   ///< since the run began
  double resident = 0.0;  ///< MiB of the process
  double descriptors = 0.0;
  double threads = 0.0;
  double cpu = 0.0;  ///< cores, over the second that ended
  uint64_t received = 0;
  uint64_t decoded = 0;
  uint64_t refused = 0;
  uint64_t discarded = 0;
  uint64_t kernel_dropped = 0;
  uint64_t frames = 0;
  uint64_t replayed = 0;  ///< frames of the replay
};

/// What a quantity may do over the last half of a run and still count as flat.
struct Quantity {
  const char* name;
  double Sample::*value;
  double floor;    ///< growth that means nothing, in the quantity's unit
  double ceiling;  ///< growth that no noise excuses
};

/// The grain of an allocator's pages, less than one descriptor or thread, and for CPU time what the
/// neighbours of a shared machine do to it. No noise excuses more than the packets that the queue may hold, a
/// descriptor, a thread, a core.
inline constexpr Quantity kQuantities[] = {
    {"resident MiB", &Sample::resident, 0.5, 16.0},
    {"descriptors", &Sample::descriptors, 0.5, 1.0},
    {"threads", &Sample::threads, 0.5, 1.0},
    {"CPU cores", &Sample::cpu, 0.25, 1.0},
};

struct Trend {
  double mean = 0.0;
  double growth = 0.0;  ///< of the fitted line, from the first of the samples to the last
  double noise = 0.0;   ///< standard deviation about the line
  bool flat = false;
};

/// Least squares over the last half. Flat: the line grows by no more than the floor, or by no more than eight
/// times the noise about it, and never by more than the ceiling. A single step, such as the queue's when
/// packets had to wait, comes to six times at most; what leaks steadily to hundreds.
Trend LastHalf(const std::vector<Sample>& samples, const Quantity& quantity);

/// A line for each sample, there at once: a run that breaks off leaves those up to then.
class CsvFile {
 public:
  explicit CsvFile(const std::string& path);
  void Add(const Sample& sample);

 private:
  std::ofstream file_;
};

void DrawPlot(const std::vector<Sample>& samples, const std::string& path);

}  // namespace orva::soak
