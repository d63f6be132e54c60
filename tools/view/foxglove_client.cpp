// SPDX-License-Identifier: Apache-2.0
#include "view/foxglove_client.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>
#include <variant>

#include "messages/cdr.h"
#include "messages/from_driver.h"
#include "messages/schemas.h"
#include "view/requests.h"

namespace orva::view {
namespace {

using Json = nlohmann::json;

constexpr const char* kFrameId = "lidar";
constexpr std::uint8_t kMessageData = 1;
constexpr std::size_t kMostSubscriptions = 16;  ///< of a client
constexpr std::ptrdiff_t kMostComplaints = 32;  ///< that wait for a client

enum Channel : std::uint32_t { kPoints = 1, kImu, kStatistics };

double SystemTime() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(since).count();
}

Message JsonMessage(const Json& json) {
  const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
  return {std::make_shared<const Bytes>(text.begin(), text.end()), true};
}

Json ChannelOf(std::uint32_t id, const char* topic, const messages::Schema& schema) {
  return {{"id", id},
          {"topic", topic},
          {"encoding", "cdr"},
          {"schemaName", schema.name},
          {"schema", schema.text},
          {"schemaEncoding", "ros2msg"}};
}

Json Channels(const Subject& subject) {
  Json channels = {ChannelOf(kPoints, "/points", messages::PointCloud2Schema()),
                   ChannelOf(kStatistics, "/diagnostics", messages::DiagnosticArraySchema())};
  if (subject.has_imu) {
    channels.push_back(ChannelOf(kImu, "/imu/data_raw", messages::ImuSchema()));
  }
  return channels;
}

}  // namespace

FoxgloveClient::FoxgloveClient(Feed& feed) : feed_(feed), id_(feed.Enter()), due_(Clock::now()) {}

FoxgloveClient::~FoxgloveClient() {
  feed_.Leave(id_);
}

bool FoxgloveClient::Receive(std::string_view text) {
  const auto request = ReadFoxgloveRequest(text);
  if (!request) {
    return false;
  }
  if (const auto* subscribe = std::get_if<SubscribeRequest>(&*request)) {
    for (const auto& [id, channel] : subscribe->subscriptions) {
      std::size_t held = 0;
      for (const auto& numbers : subscribers_) {
        held += numbers.size();
      }
      if (channel < kPoints || channel > kStatistics || held >= kMostSubscriptions) {
        queue_.push_back(
            JsonMessage({{"op", "status"}, {"level", 2}, {"message", "no such channel, or too many"}}));
        // A peer that provokes them without reading them is no viewer.
        return std::count_if(queue_.begin(), queue_.end(), [](const Message& m) { return m.text; }) <
               kMostComplaints;
      }
      Subscribers(channel).insert(id);
    }
  } else if (const auto* unsubscribe = std::get_if<UnsubscribeRequest>(&*request)) {
    for (const std::uint32_t id : unsubscribe->ids) {
      for (auto& numbers : subscribers_) {
        numbers.erase(id);
      }
    }
  }
  return true;
}

std::optional<Message> FoxgloveClient::Next() {
  if (greeting_ < 2) {
    return ++greeting_ == 1 ? JsonMessage({{"op", "serverInfo"},
                                           {"name", "orva view: " + feed_.subject().title},
                                           {"capabilities", Json::array()},
                                           {"supportedEncodings", Json::array()},
                                           {"metadata", {{"model", feed_.subject().model}}},
                                           {"sessionId", std::to_string(id_)}})
                            : JsonMessage({{"op", "advertise"}, {"channels", Channels(feed_.subject())}});
  }
  if (queue_.empty()) {
    Prepare();
  }
  if (queue_.empty()) {
    return std::nullopt;
  }
  Message message = std::move(queue_.front());
  queue_.pop_front();
  return message;
}

void FoxgloveClient::Prepare() {
  PreparePoints();
  const double now = SystemTime();
  PublishImu(feed_.ImuSince(imu_taken_), now);
  if (const Status status = feed_.status(); status.version != told_) {
    told_ = status.version;
    messages::WriteCdr(messages::ToDiagnostics(status.statistics, status.before, status.interval,
                                               messages::ToTime(now), {"orva: lidar", feed_.subject().model}),
                       payload_);
    Publish(kStatistics, now);
  }
}

void FoxgloveClient::PublishImu(const std::vector<ImuMsg>& samples, double received) {
  if (Subscribers(kImu).empty()) {
    return;
  }
  for (const ImuMsg& sample : samples) {
    messages::WriteCdr(messages::ToImu(sample, received, kFrameId), payload_);
    Publish(kImu, sample.timestamp > 0.0 ? sample.timestamp : received);
  }
}

void FoxgloveClient::PreparePoints() {
  const Subject& subject = feed_.subject();
  // The samples of a recording come with its frames.
  if (Subscribers(kPoints).empty() && (subject.live || Subscribers(kImu).empty())) {
    return;
  }
  FramePtr frame = subject.live ? feed_.Newest() : feed_.TakeWanted(id_);
  wanting_ = wanting_ && frame == nullptr;
  if (!subject.live && !wanting_ && subject.frames > 0) {
    const auto period =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(subject.period));
    due_ = std::max(due_ + period, Clock::now());
    feed_.Want(id_, next_frame_, due_);
    next_frame_ = (next_frame_ + 1) % subject.frames;
    wanting_ = true;
  }
  if (frame == nullptr || frame == sent_) {
    return;
  }
  sent_ = frame;
  PublishImu(frame->imu, frame->captured);
  messages::CloudOptions options;
  options.frame_id = kFrameId;
  messages::FillPointCloud2(*frame->cloud, frame->captured, options, cloud_);
  messages::WriteCdr(cloud_, payload_);
  Publish(kPoints, messages::StampOf(*frame->cloud, frame->captured));
}

void FoxgloveClient::Publish(std::uint32_t channel, double time) {
  const std::uint64_t nanoseconds = time > 0.0 && time < 1e10 ? static_cast<std::uint64_t>(time * 1e9) : 0;
  for (const std::uint32_t subscription : Subscribers(channel)) {
    auto bytes = std::make_shared<Bytes>(1 + 4 + 8 + payload_.size());
    (*bytes)[0] = kMessageData;
    std::memcpy(bytes->data() + 1, &subscription, 4);
    std::memcpy(bytes->data() + 5, &nanoseconds, 8);
    std::copy(payload_.begin(), payload_.end(), bytes->begin() + 13);
    queue_.push_back({std::move(bytes), false});
  }
}

}  // namespace orva::view
