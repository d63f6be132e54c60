// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_CSV_LINE_H_
#define ORVA_TOOLS_FORMATS_CSV_LINE_H_

#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <type_traits>

namespace orva {

/// "1,2.5,0\n": numbers in the shortest form that reads back exactly, whatever the locale.
template <typename... Numbers>
std::string CsvLine(Numbers... numbers) {
  std::string line;
  const auto append = [&line](auto number) {
    std::array<char, 64> digits;
    char* const end = digits.data() + digits.size();
    std::to_chars_result result = {};
    if constexpr (std::is_floating_point_v<decltype(number)>) {
      // People read these: no exponent, except where it saves a page of zeros.
      const auto size = std::abs(number);
      const bool plain = size == 0 || (size >= 1e-6 && size < 1e15);
      result = std::to_chars(digits.data(), end, number,
                             plain ? std::chars_format::fixed : std::chars_format::general);
    } else {
      result = std::to_chars(digits.data(), end, number);
    }
    line.append(digits.data(), result.ptr);
    line += ',';
  };
  (append(numbers), ...);
  line.back() = '\n';
  return line;
}

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_CSV_LINE_H_
