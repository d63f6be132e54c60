// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CSV_LINE_H_
#define ORVA_TOOLS_CSV_LINE_H_

#include <array>
#include <charconv>
#include <string>

namespace orva {

/// "1,2.5,0\n": numbers in the shortest form that reads back exactly, whatever the locale.
template <typename... Numbers>
std::string CsvLine(Numbers... numbers) {
  std::string line;
  const auto append = [&line](auto number) {
    std::array<char, 32> digits;
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    line.append(digits.data(), result.ptr);
    line += ',';
  };
  (append(numbers), ...);
  line.back() = '\n';
  return line;
}

}  // namespace orva

#endif  // ORVA_TOOLS_CSV_LINE_H_
