// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FEEDS_RECORDING_FEED_H_
#define ORVA_TOOLS_FEEDS_RECORDING_FEED_H_

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "sessions/replay_session.h"
#include "view/feed.h"

namespace orva {

/// The frames of a recording, decoded when somebody wants to see them.
class RecordingFeed : public view::Feed {
 public:
  /// Indexes the recording. Throws Failure. `ready` is called from another thread when a frame is.
  RecordingFeed(const DriverParam& param, std::function<void()> ready);
  ~RecordingFeed() override;

  const view::Subject& subject() const override { return subject_; }
  view::Status status() override;
  view::FramePtr Newest() override { return nullptr; }
  std::vector<ImuMsg> ImuSince(std::uint64_t&) override { return {}; }
  void Want(std::uint64_t client, std::uint32_t frame, view::Clock::time_point due) override;
  view::FramePtr TakeWanted(std::uint64_t client) override;
  std::uint64_t Enter() override;
  void Leave(std::uint64_t client) override;
  void Close() override;

 private:
  struct Wish {
    std::uint32_t frame;
    view::Clock::time_point due;
    view::FramePtr granted;
  };

  void Measure();
  void Work();
  std::optional<std::uint32_t> WaitForWish(std::unique_lock<std::mutex>& lock);
  view::FramePtr Fetch(std::uint32_t number);

  ReplaySession session_;
  LidarType model_;
  std::function<void()> ready_;
  view::Subject subject_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::uint64_t, Wish> wishes_;  ///< by client
  std::uint64_t clients_ = 0;
  view::Status status_;
  bool closing_ = false;
  std::deque<view::FramePtr> recent_;  ///< the worker's own
  std::thread worker_;
};

}  // namespace orva

#endif  // ORVA_TOOLS_FEEDS_RECORDING_FEED_H_
