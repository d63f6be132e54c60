// SPDX-License-Identifier: Apache-2.0
#include "view/requests.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

namespace orva::view {
namespace {

using Json = nlohmann::json;

/// The object in a text; a discarded value where there is none.
Json ReadObject(std::string_view text) {
  if (text.size() > kLongestRequest) {
    return Json(Json::value_t::discarded);
  }
  Json json = Json::parse(text.begin(), text.end(), nullptr, false);
  return json.is_object() ? std::move(json) : Json(Json::value_t::discarded);
}

std::optional<std::uint32_t> Number(const Json& object, const char* name) {
  const auto field = object.is_object() ? object.find(name) : object.end();
  if (field == object.end() || !field->is_number_unsigned()) {
    return std::nullopt;
  }
  const auto number = field->get<std::uint64_t>();
  return number > std::numeric_limits<std::uint32_t>::max()
             ? std::nullopt
             : std::optional(static_cast<std::uint32_t>(number));
}

std::string Word(const Json& object, const char* name) {
  const auto field = object.find(name);
  return field != object.end() && field->is_string() ? field->get<std::string>() : std::string();
}

const Json& List(const Json& object, const char* name) {
  static const Json kEmpty = Json::array();
  const auto field = object.find(name);
  return field != object.end() && field->is_array() ? *field : kEmpty;
}

}  // namespace

std::optional<PageRequest> ReadPageRequest(std::string_view text) {
  const Json json = ReadObject(text);
  if (json.is_discarded()) {
    return std::nullopt;
  }
  const std::string type = Word(json, "type");
  const auto frame = Number(json, "frame");
  const auto index = Number(json, "index");
  if (type == "show" && frame) {
    return ShowRequest{*frame};
  }
  if (type == "point" && frame && index) {
    return PointRequest{*frame, *index};
  }
  if (type == "ready") {
    return ReadyRequest{};
  }
  return std::nullopt;
}

std::optional<FoxgloveRequest> ReadFoxgloveRequest(std::string_view text) {
  const Json json = ReadObject(text);
  if (json.is_discarded()) {
    return std::nullopt;
  }
  const std::string operation = Word(json, "op");
  if (operation == "subscribe") {
    SubscribeRequest request;
    for (const Json& entry : List(json, "subscriptions")) {
      const auto id = Number(entry, "id");
      const auto channel = Number(entry, "channelId");
      if (!id || !channel) {
        return std::nullopt;
      }
      request.subscriptions.push_back({*id, *channel});
    }
    return request;
  }
  if (operation == "unsubscribe") {
    UnsubscribeRequest request;
    for (const Json& entry : List(json, "subscriptionIds")) {
      if (entry.is_number_unsigned() &&
          entry.get<std::uint64_t>() <= std::numeric_limits<std::uint32_t>::max()) {
        request.ids.push_back(entry.get<std::uint32_t>());
      }
    }
    return request;
  }
  return operation.empty() ? std::nullopt : std::optional<FoxgloveRequest>(OtherRequest{});
}

}  // namespace orva::view
