// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_VIEW_REQUESTS_H_
#define ORVA_TOOLS_VIEW_REQUESTS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <variant>
#include <vector>

namespace orva::view {

// What a browser or another viewer may ask for, read from JSON text of unknown origin.

/// The longest message that is read; a longer one ends the connection.
constexpr std::size_t kLongestRequest = 16 * 1024;

/// Recording: {"type":"show","frame":N}.
struct ShowRequest {
  std::uint32_t frame;
};
/// Live: {"type":"ready"}; the page has drawn a frame and takes one more.
struct ReadyRequest {};
/// {"type":"point","frame":N,"index":I}: all that is known of a point of the frame that was sent last.
struct PointRequest {
  std::uint32_t frame;
  std::uint32_t index;
};
using PageRequest = std::variant<ShowRequest, ReadyRequest, PointRequest>;

/// Nothing for what is none of them.
std::optional<PageRequest> ReadPageRequest(std::string_view text);

/// {"op":"subscribe","subscriptions":[{"id":I,"channelId":C},...]}
struct SubscribeRequest {
  struct Subscription {
    std::uint32_t id;
    std::uint32_t channel;
  };
  std::vector<Subscription> subscriptions;
};
/// {"op":"unsubscribe","subscriptionIds":[I,...]}
struct UnsubscribeRequest {
  std::vector<std::uint32_t> ids;
};
/// Something that is part of the protocol, and that this server does not offer.
struct OtherRequest {};
using FoxgloveRequest = std::variant<SubscribeRequest, UnsubscribeRequest, OtherRequest>;

std::optional<FoxgloveRequest> ReadFoxgloveRequest(std::string_view text);

}  // namespace orva::view

#endif  // ORVA_TOOLS_VIEW_REQUESTS_H_
