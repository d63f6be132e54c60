// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FEEDS_LIVE_FEED_H_
#define ORVA_TOOLS_FEEDS_LIVE_FEED_H_

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "sessions/live_session.h"
#include "view/feed.h"

namespace orva {

/// What a live sensor sends. A thread of its own prepares each frame once, for all clients together: the
/// driver's threads have nothing to do with pages.
class LiveFeed : public view::Feed {
 public:
  /// Throws Failure. `ready` is called from another thread when there is something new.
  LiveFeed(const DriverParam& param, std::function<void()> ready);
  ~LiveFeed() override;

  const view::Subject& subject() const override { return subject_; }
  view::Status status() override;
  view::FramePtr Newest() override;
  std::vector<ImuMsg> ImuSince(std::uint64_t& taken) override;
  void Want(std::uint64_t, std::uint32_t, view::Clock::time_point) override {}
  view::FramePtr TakeWanted(std::uint64_t) override { return nullptr; }
  std::uint64_t Enter() override;
  void Leave(std::uint64_t client) override;
  void Close() override;

 private:
  void Work();
  void TakeClouds(const LiveSession::Arrivals& arrivals);
  void TakeImu(const LiveSession::Arrivals& arrivals);
  void RenewStatus();

  DriverParam param_;
  std::function<void()> ready_;
  view::Subject subject_;
  LiveSession session_;
  std::atomic<bool> closing_ = false;
  std::atomic<int> watching_ = 0;
  std::uint64_t clients_ = 0;

  std::mutex mutex_;  ///< of what follows
  view::FramePtr newest_;
  std::deque<ImuMsg> imu_;
  std::uint64_t imu_end_ = 0;  ///< number of samples ever
  view::Status status_;

  std::uint32_t arrived_ = 0;  ///< the worker's own, as what follows
  view::Clock::time_point started_ = view::Clock::now();
  view::Clock::time_point renewed_ = started_;
  std::thread worker_;
};

}  // namespace orva

#endif  // ORVA_TOOLS_FEEDS_LIVE_FEED_H_
