// SPDX-License-Identifier: Apache-2.0
#include "shared/json.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdio>

namespace orva {
namespace {

/// Bytes of the UTF-8 character that `text` begins with; 0 where it begins with none.
std::size_t CharacterLength(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 && first < 0xF5   ? 4
                             : first >= 0xE0 && first < 0xF0 ? 3
                             : first >= 0xC2 && first < 0xE0 ? 2
                                                             : 0;
  if (length == 0 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  // Longer forms than needed, halves of pairs, and what lies beyond the last character.
  const unsigned second = byte(1);
  const bool wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                     (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
  return wrong ? 0 : length;
}

}  // namespace

std::string JsonText(std::string_view text) {
  std::string quoted = "\"";
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    const auto first = static_cast<unsigned char>(text[0]);
    if (length == 0) {
      quoted += "\\ufffd";
    } else if (first == '"' || first == '\\') {
      quoted += {'\\', text[0]};
    } else if (first < 0x20 || first == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof(escape), "\\u%04x", first);
      quoted += escape;
    } else {
      quoted += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return quoted + '"';
}

std::string JsonNumber(double number) {
  if (!std::isfinite(number)) return "null";
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  return {digits.data(), end};
}

JsonObject& JsonObject::AddRaw(std::string_view key, std::string_view json) {
  if (!fields_.empty()) fields_ += ',';
  fields_ += JsonText(key);
  fields_ += ':';
  fields_ += json;
  return *this;
}

}  // namespace orva
