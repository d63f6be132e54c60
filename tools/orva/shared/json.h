// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_JSON_H_
#define ORVA_TOOLS_SHARED_JSON_H_

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace orva {

/// A text in quotation marks. Bytes that are no UTF-8, as a path may hold them, become U+FFFD.
std::string JsonText(std::string_view text);
/// null for what JSON has no number for.
std::string JsonNumber(double number);

/// One JSON object, written field by field.
class JsonObject {
 public:
  JsonObject& Add(std::string_view key, std::string_view text) { return AddRaw(key, JsonText(text)); }
  JsonObject& Add(std::string_view key, const char* text) { return AddRaw(key, JsonText(text)); }
  JsonObject& Add(std::string_view key, double number) { return AddRaw(key, JsonNumber(number)); }
  JsonObject& Add(std::string_view key, std::same_as<bool> auto value) {
    return AddRaw(key, value ? "true" : "false");
  }
  template <std::integral Number>
  requires(!std::same_as<Number, bool>) JsonObject& Add(std::string_view key, Number number) {
    return AddRaw(key, std::to_string(number));
  }
  JsonObject& Add(std::string_view key, const JsonObject& object) { return AddRaw(key, object.Text()); }
  /// `json` is JSON already.
  JsonObject& AddRaw(std::string_view key, std::string_view json);

  std::string Text() const { return "{" + fields_ + "}"; }

 private:
  std::string fields_;
};

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_JSON_H_
