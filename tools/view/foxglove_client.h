// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_VIEW_FOXGLOVE_CLIENT_H_
#define ORVA_TOOLS_VIEW_FOXGLOVE_CLIENT_H_

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "messages/messages.h"
#include "view/feed.h"
#include "view/web_server.h"

namespace orva::view {

/// The WebSocket protocol of Foxglove, version 1: clouds, IMU samples and statistics as ROS 2 messages, for
/// viewers on the desktop. A recording is played at its own pace, over and over.
constexpr const char* kFoxgloveSubprotocol = "foxglove.websocket.v1";

class FoxgloveClient : public Client {
 public:
  explicit FoxgloveClient(Feed& feed);
  ~FoxgloveClient() override;
  FoxgloveClient(const FoxgloveClient&) = delete;
  FoxgloveClient& operator=(const FoxgloveClient&) = delete;

  bool Receive(std::string_view text) override;
  std::optional<Message> Next() override;

 private:
  std::set<std::uint32_t>& Subscribers(std::uint32_t channel) { return subscribers_.at(channel - 1); }
  void Prepare();
  void PreparePoints();
  void PublishImu(const std::vector<ImuMsg>& samples, double received);
  /// What `payload_` holds goes to every subscription of the channel.
  void Publish(std::uint32_t channel, double time);

  Feed& feed_;
  std::uint64_t id_;
  int greeting_ = 0;
  std::array<std::set<std::uint32_t>, 3> subscribers_;  ///< subscription numbers by channel
  std::deque<Message> queue_;                           ///< filled when it is empty; complaints come on top
  FramePtr sent_;
  std::uint32_t next_frame_ = 0;
  Clock::time_point due_;
  bool wanting_ = false;
  std::uint64_t imu_taken_ = 0;
  std::uint64_t told_ = 0;
  messages::PointCloud2 cloud_;
  Bytes payload_;
};

}  // namespace orva::view

#endif  // ORVA_TOOLS_VIEW_FOXGLOVE_CLIENT_H_
