// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string_view>
#include <utility>

#include "expect.h"
#include "targets.h"
#include "view/foxglove_client.h"
#include "view/page_client.h"

namespace orva::fuzz {
namespace {

/// Two frames, one small and one empty, at once for whoever asks.
class FewFrames : public view::Feed {
 public:
  explicit FewFrames(bool live) {
    subject_.live = live;
    subject_.has_imu = true;
    subject_.frames = 2;
    auto cloud = std::make_shared<view::Cloud>();
    cloud->points.resize(8);
    auto frame = std::make_shared<view::Frame>();
    *frame = {1, 1.0, cloud, std::make_shared<const view::Bytes>(64)};
    frame_ = frame;
  }

  const view::Subject& subject() const override { return subject_; }
  view::Status status() override { return {}; }
  view::FramePtr Newest() override { return frame_; }
  std::vector<ImuMsg> ImuSince(std::uint64_t& taken) override { return std::vector<ImuMsg>(taken++ % 2); }
  void Want(std::uint64_t, std::uint32_t frame, view::Clock::time_point) override {
    ORVA_EXPECT(frame < subject_.frames);
    wanted_ = frame_;
  }
  view::FramePtr TakeWanted(std::uint64_t) override { return std::exchange(wanted_, nullptr); }
  std::uint64_t Enter() override { return static_cast<std::uint64_t>(++clients_); }
  void Leave(std::uint64_t) override { --clients_; }
  void Close() override {}

  int clients() const { return clients_; }

 private:
  view::Subject subject_;
  view::FramePtr frame_;
  view::FramePtr wanted_;
  int clients_ = 0;
};

/// Line by line; between two lines the peer takes a few messages, or none.
void Talk(view::Client& client, std::string_view text) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (!client.Receive(line)) {
      return;
    }
    for (int i = 0; line.size() % 2 == 0 && i < 4; ++i) {
      const auto message = client.Next();
      ORVA_EXPECT(!message || (message->bytes != nullptr && !message->bytes->empty()));
    }
  }
}

}  // namespace

void ViewMessages(const uint8_t* data, size_t size) {
  if (size == 0) {
    return;
  }
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  FewFrames feed((data[0] & 1) != 0);
  if ((data[0] & 2) != 0) {
    view::FoxgloveClient client(feed);
    Talk(client, text);
  } else {
    view::PageClient client(feed);
    Talk(client, text);
  }
  ORVA_EXPECT(feed.clients() == 0);
}

}  // namespace orva::fuzz
