// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_VIEW_PAGE_CLIENT_H_
#define ORVA_TOOLS_VIEW_PAGE_CLIENT_H_

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "view/feed.h"
#include "view/web_server.h"

namespace orva::view {

/// The subprotocol of the page: text messages are JSON objects with a "type", binary ones are frames
/// (page_frame.h). docs/viewer.md lists them.
constexpr const char* kPageSubprotocol = "orva.view.1";

class PageClient : public Client {
 public:
  explicit PageClient(Feed& feed);
  ~PageClient() override;
  PageClient(const PageClient&) = delete;
  PageClient& operator=(const PageClient&) = delete;

  bool Receive(std::string_view text) override;
  std::optional<Message> Next() override;

 private:
  std::string Hello() const;
  std::string StatusText(const Status& status) const;
  std::string PointText(std::uint32_t frame, std::uint32_t index) const;
  std::optional<Message> NextFrame();

  Feed& feed_;
  std::uint64_t id_;
  bool greeted_ = false;
  std::uint64_t told_ = 0;       ///< version of the status
  std::uint64_t imu_taken_ = 0;  ///< see Feed::ImuSince
  Clock::time_point imu_due_;
  int credit_ = 2;              ///< live: frames that the page takes before it asks for more
  std::deque<FramePtr> shown_;  ///< sent last, the newest behind: what points are asked of
  std::uint64_t sent_ = 0;
  std::uint64_t dropped_ = 0;
  std::deque<std::string> replies_;
};

}  // namespace orva::view

#endif  // ORVA_TOOLS_VIEW_PAGE_CLIENT_H_
