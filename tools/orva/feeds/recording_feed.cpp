// SPDX-License-Identifier: Apache-2.0
#include "feeds/recording_feed.h"

#include <pthread.h>

#include <algorithm>
#include <filesystem>
#include <new>
#include <string>
#include <utility>

#include "feeds/conditions.h"
#include "sessions/calibration_files.h"
#include "sessions/recording.h"
#include "shared/failure.h"
#include "shared/models.h"
#include "view/page_frame.h"

namespace orva {
namespace {

/// Decoded frames that are kept, for several pages at the same place and for steps back and forth: some 20
/// MB.
constexpr std::size_t kMostRecent = 24;

/// Where the capture has no times: the pace of the sensors.
constexpr double kUsualPeriod = 0.1;

}  // namespace

RecordingFeed::RecordingFeed(const DriverParam& param, std::function<void()> ready)
    : session_(param), model_(param.lidar_type), ready_(std::move(ready)) {
  const ModelTraits& model = TraitsOf(model_);
  subject_.title = std::filesystem::path(param.input_param.pcap_path).filename().string();
  subject_.model = model.name;
  subject_.has_imu = model.has_imu;
  const DecoderParam& mounting = param.decoder_param;
  subject_.mounted = mounting.use_transform;
  subject_.mounting = {mounting.x_offset, mounting.y_offset, mounting.z_offset,
                       mounting.roll,     mounting.pitch,    mounting.yaw};
  subject_.frames = static_cast<std::uint32_t>(IndexWithProgress(session_, "all").size());
  Measure();
  worker_ = std::thread([this] { Work(); });
  pthread_setname_np(worker_.native_handle(), "orva-view");
}

RecordingFeed::~RecordingFeed() {
  Close();
}

void RecordingFeed::Close() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_all();
  if (worker_.joinable()) {
    worker_.join();
  }
}

/// The pace, and whether there is anything to see.
void RecordingFeed::Measure() {
  const view::FramePtr first = Fetch(0);
  const std::uint32_t last_whole = subject_.frames > 2 ? subject_.frames - 2 : subject_.frames - 1;
  const view::FramePtr last = Fetch(last_whole);
  if (first == nullptr || last == nullptr) {
    return;
  }
  const double period = last_whole == 0 ? 0.0 : (last->captured - first->captured) / last_whole;
  subject_.period = period > 0.001 && period < 10.0 ? period : kUsualPeriod;
  status_.version = 1;
  status_.statistics = session_.Statistics();
  status_.calibration = CalibrationText(model_, status_.statistics);
  status_.condition = RecordingCondition(model_, status_.statistics, *first->cloud, *last->cloud);
}

view::Status RecordingFeed::status() {
  const std::lock_guard lock(mutex_);
  return status_;
}

void RecordingFeed::Want(std::uint64_t client, std::uint32_t frame, view::Clock::time_point due) {
  {
    const std::lock_guard lock(mutex_);
    wishes_[client] = {frame, due, nullptr};
  }
  changed_.notify_all();
}

view::FramePtr RecordingFeed::TakeWanted(std::uint64_t client) {
  const std::lock_guard lock(mutex_);
  const auto wish = wishes_.find(client);
  if (wish == wishes_.end() || wish->second.granted == nullptr) {
    return nullptr;
  }
  view::FramePtr frame = std::move(wish->second.granted);
  wishes_.erase(wish);
  return frame;
}

std::uint64_t RecordingFeed::Enter() {
  return ++clients_;
}

void RecordingFeed::Leave(std::uint64_t client) {
  const std::lock_guard lock(mutex_);
  wishes_.erase(client);
}

void RecordingFeed::Work() {
  std::unique_lock lock(mutex_);
  while (const auto number = WaitForWish(lock)) {
    lock.unlock();
    view::FramePtr frame;
    std::string trouble;
    try {
      frame = Fetch(*number);
    } catch (const Failure&) {
      trouble = "The recording was cut or replaced since it was opened; frame " + std::to_string(*number) +
                " is not there any more. Start orva view anew to see what is.";
    } catch (const std::bad_alloc&) {
      trouble = "There is no memory for a further frame. Close some programs.";
    }
    lock.lock();
    if (frame == nullptr && trouble.empty()) {
      return;  // interrupted
    }
    if (!trouble.empty()) {
      std::erase_if(wishes_, [&number](const auto& entry) { return entry.second.frame == *number; });
      status_.condition = {"no-frame", std::move(trouble)};
      ++status_.version;
    }
    for (auto& [client, wish] : wishes_) {
      if (wish.frame == *number && wish.due <= view::Clock::now()) {
        wish.granted = frame;
      }
    }
    ready_();
  }
}

/// The frame that is due first; nothing when the feed closes.
std::optional<std::uint32_t> RecordingFeed::WaitForWish(std::unique_lock<std::mutex>& lock) {
  while (!closing_) {
    const Wish* first = nullptr;
    for (const auto& [client, wish] : wishes_) {
      if (wish.granted == nullptr && (first == nullptr || wish.due < first->due)) {
        first = &wish;
      }
    }
    if (first == nullptr) {
      changed_.wait(lock);
    } else if (first->due > view::Clock::now()) {
      changed_.wait_until(lock, view::Clock::time_point(first->due));
    } else {
      return first->frame;
    }
  }
  return std::nullopt;
}

view::FramePtr RecordingFeed::Fetch(std::uint32_t number) {
  const auto known = std::find_if(recent_.begin(), recent_.end(),
                                  [number](const view::FramePtr& frame) { return frame->number == number; });
  if (known != recent_.end()) {
    return *known;
  }
  ReplaySession::Played played = session_.PlayOne(static_cast<int>(number));
  if (played.cloud == nullptr) {
    return nullptr;
  }
  const double time = played.cloud->timestamp > 0.0 ? played.cloud->timestamp : played.origin.first_packet;
  auto frame = std::make_shared<view::Frame>();
  *frame = {number, played.origin.first_packet, played.cloud,
            std::make_shared<const view::Bytes>(view::EncodePageFrame(*played.cloud, number, time))};
  for (const auto& [sample, received] : played.origin.imu) {
    frame->imu.push_back(sample);
  }
  recent_.push_back(frame);
  if (recent_.size() > kMostRecent) {
    recent_.pop_front();
  }
  return frame;
}

}  // namespace orva
