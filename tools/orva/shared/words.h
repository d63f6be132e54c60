// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_WORDS_H_
#define ORVA_TOOLS_SHARED_WORDS_H_

#include <cstdint>
#include <string>

namespace orva {

/// "1 file", "2 files".
inline std::string Counted(std::uint64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

/// A word as a shell takes it: quoted where it must be, so that a suggested command works when pasted.
inline std::string ShellWord(const std::string& word) {
  constexpr const char* kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+./,:@%=";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) {
    return word;
  }
  std::string quoted = "'";
  for (const char c : word) {
    quoted += c == '\'' ? "'\\''" : std::string(1, c);
  }
  return quoted + '\'';
}

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_WORDS_H_
