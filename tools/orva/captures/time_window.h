// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_TIME_WINDOW_H_
#define ORVA_TOOLS_CAPTURES_TIME_WINDOW_H_

#include <cstdint>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace orva {

/// A moment of a recording: seconds after its first record, or a UTC time.
struct Moment {
  bool relative = true;
  int64_t ns = 0;

  int64_t After(int64_t start_ns) const { return relative ? start_ns + ns : ns; }
};

/// From a moment (included) to another (left out).
struct TimeWindow {
  std::optional<Moment> from{};
  std::optional<Moment> to{};

  bool Holds(int64_t time_ns, int64_t start_ns) const {
    return (!from || time_ns >= from->After(start_ns)) && (!to || time_ns < to->After(start_ns));
  }
};

/// Reads "12.5" or "2026-03-01T09:30:00.25". Nothing where it is neither.
std::optional<Moment> ParseMoment(const std::string& text);

/// Adds --from and, under the names `end`, the other bound.
void AddTimeWindow(CLI::App& command, TimeWindow& window, const std::string& end);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_TIME_WINDOW_H_
