// SPDX-License-Identifier: Apache-2.0
#include "captures/time_window.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <ctime>
#include <string_view>

namespace orva {
namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr uint64_t kLatest = 0xFFFF'FFFF;  ///< seconds; what a pcap file can name

/// The whole text as digits with at most nine more behind a point, exactly.
std::optional<int64_t> ParseSeconds(std::string_view text) {
  uint64_t seconds = 0;
  const char* const end = text.data() + text.size();
  auto [at, error] = std::from_chars(text.data(), end, seconds);
  if (error != std::errc() || seconds > kLatest) return std::nullopt;
  int64_t fraction = 0;
  if (at != end && *at == '.') {
    int64_t unit = kSecond;
    for (++at; at != end && *at >= '0' && *at <= '9' && unit > 1; ++at) {
      unit /= 10;
      fraction += unit * (*at - '0');
    }
  }
  if (at != end) return std::nullopt;
  return static_cast<int64_t>(seconds) * kSecond + fraction;
}

void AddMoment(CLI::App& command, const std::string& name, const std::string& what,
               std::optional<Moment>& moment) {
  const auto parse = [name, &moment](const CLI::results_t& words) {
    moment = ParseMoment(words.front());
    if (!moment) {
      throw CLI::ValidationError(name.substr(0, name.find(',')),
                                 "'" + words.front() +
                                     "' is no time. Write seconds after the first record, as in 12.5, or "
                                     "a UTC time, as in 2026-03-01T09:30:00.");
    }
    return true;
  };
  command.add_option(name, parse, what)->type_name("TIME");
}

}  // namespace

std::optional<Moment> ParseMoment(const std::string& text) {
  if (const std::optional<int64_t> seconds = ParseSeconds(text)) return Moment{true, *seconds};
  std::tm date{};
  const char* const seconds = strptime(text.c_str(), "%Y-%m-%dT%H:%M:", &date);
  if (seconds == nullptr) return std::nullopt;
  std::string_view rest = seconds;
  if (!rest.empty() && rest.back() == 'Z') rest.remove_suffix(1);
  const std::optional<int64_t> in_minute = ParseSeconds(rest);
  const std::time_t minute = timegm(&date);
  if (!in_minute || *in_minute > 60 * kSecond || minute < 0 || minute > static_cast<std::time_t>(kLatest)) {
    return std::nullopt;
  }
  return Moment{false, minute * kSecond + *in_minute};
}

void AddTimeWindow(CLI::App& command, TimeWindow& window, const std::string& end) {
  AddMoment(command, "--from", "Begin there: seconds after the first record, or a UTC time", window.from);
  AddMoment(command, end, "End before that; written as --from", window.to);
}

}  // namespace orva
