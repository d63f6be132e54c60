// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_NUMBERS_H_
#define ORVA_TOOLS_SHARED_NUMBERS_H_

#include <CLI/CLI.hpp>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>

namespace orva {

/// As people write numbers: "1000000", "0.1".
template <typename Number>
std::string NumberText(Number number) {
  std::array<char, 64> text;
  const char* end = nullptr;
  if constexpr (std::is_floating_point_v<Number>) {
    end = std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::general).ptr;
  } else {
    end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
  }
  return std::string(text.data(), static_cast<std::size_t>(end - text.data()));
}

/// The number that `word` is, if it lies from `least` to `most`. Throws CLI::ValidationError. Neither a sign
/// wraps nor does "nan" pass, and what follows the number is not overlooked.
template <typename Number>
Number ReadNumber(const std::string& option, const std::string& word, Number least, Number most) {
  Number number = {};
  const char* const end = word.data() + word.size();
  const auto result = std::from_chars(word.data(), end, number);
  const bool in_range = number >= least && number <= most;
  if (result.ec != std::errc() || result.ptr != end || !in_range) {
    throw CLI::ValidationError(option, "'" + word.substr(0, 40) + "' is no " +
                                           (std::is_integral_v<Number> ? "whole number" : "number") +
                                           " from " + NumberText(least) + " to " + NumberText(most) + ".");
  }
  return number;
}

/// "Frames per second, 0.1 to 100".
template <typename Number>
std::string WithRange(const std::string& help, Number least, Number most) {
  return help + ", " + NumberText(least) + " to " + NumberText(most);
}

/// The number in a variable that may also hold none.
template <typename Variable>
struct NumberIn {
  using Type = Variable;
};
template <typename Number>
struct NumberIn<std::optional<Number>> {
  using Type = Number;
};

/// Adds an option for a number whose range stands in the help and in the message for any other word.
template <typename Variable, typename Number = typename NumberIn<Variable>::Type>
CLI::Option* AddNumber(CLI::App& command, const std::string& name, Variable& number,
                       std::type_identity_t<Number> least, std::type_identity_t<Number> most,
                       const std::string& help) {
  return command
      .add_option_function<std::string>(
          name,
          [&number, name, least, most](const std::string& word) {
            number = ReadNumber<Number>(name, word, least, most);
          },
          WithRange(help, least, most))
      ->type_name("N");
}

/// Most of what is counted: frames, packets, files.
inline constexpr std::uint64_t kMostCounted = 1'000'000'000;

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_NUMBERS_H_
