// SPDX-License-Identifier: Apache-2.0
#include "sessions/frame_selection.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <limits>
#include <string_view>

#include "shared/failure.h"

namespace orva {
namespace {

constexpr int kOpenEnd = std::numeric_limits<int>::max();

struct Range {
  int first;
  int last;  ///< inclusive; kOpenEnd: to the end of the recording
};

int ParseNumber(std::string_view text, const std::string& list) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0) {
    throw WrongUsage("'" + list +
                     "' is no list of frames. Write numbers and ranges, as in --frames 0-4,7,20-");
  }
  return number;
}

std::vector<Range> Parse(const std::string& list) {
  if (list.empty() || list == "all") {
    return {{0, kOpenEnd}};
  }
  std::vector<Range> ranges;
  std::string_view rest = list;
  while (true) {
    const std::string_view item = rest.substr(0, rest.find(','));
    const std::size_t dash = item.find('-');
    Range range = {};
    range.first = ParseNumber(item.substr(0, dash), list);
    if (dash == std::string_view::npos) {
      range.last = range.first;
    } else {
      range.last = dash + 1 == item.size() ? kOpenEnd : ParseNumber(item.substr(dash + 1), list);
    }
    if (range.last < range.first) {
      throw WrongUsage("'" + std::string(item) + "' runs backwards; write the smaller frame number first.");
    }
    ranges.push_back(range);
    if (item.size() == rest.size()) {
      return ranges;
    }
    rest.remove_prefix(item.size() + 1);
  }
}

}  // namespace

void AddFrameListOption(CLI::App& command, std::string& list) {
  command.add_option("--frames", list, "Which frames, as in 0-4,7,20-")
      ->capture_default_str()
      ->type_name("LIST");
}

void CheckFrameList(const std::string& list) {
  Parse(list);
}

std::vector<int> SelectFrames(const std::string& list, int count) {
  std::vector<int> frames;
  for (const Range& range : Parse(list)) {
    const int last = range.last == kOpenEnd ? count - 1 : range.last;
    const int beyond = range.first >= count ? range.first : last;
    if (beyond >= count) {
      throw Failure("there is no frame " + std::to_string(beyond) + ": the recording has the frames 0 to " +
                    std::to_string(count - 1) + ".");
    }
    for (int frame = range.first; frame <= last; ++frame) {
      frames.push_back(frame);
    }
  }
  return frames;
}

}  // namespace orva
