// SPDX-License-Identifier: Apache-2.0
#include "sessions/replay_session.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "captures/capture_check.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"

namespace orva {
namespace {

/// Finished clouds that wait for `take`; beyond them the replay thread waits too, so memory stays bounded.
constexpr std::size_t kWaitingClouds = 3;

/// A play ends a moment after its last cloud, without a signal: the next request is repeated at this pace.
constexpr std::chrono::microseconds kRetry(200);

/// Until Ctrl-C is looked for.
constexpr std::chrono::milliseconds kLongestWait(100);

/// Without a packet for so long the recording is looked at.
constexpr std::chrono::seconds kStandstill(5);

/// `origin` becomes `next`, with the samples of both: those of a cloud that is not shown are not lost.
void Follow(FrameOrigin& origin, FrameOrigin next) {
  next.imu.insert(next.imu.begin(), origin.imu.begin(), origin.imu.end());
  origin = std::move(next);
}

/// `cloud` goes on with `next`, which has the time and the status of both.
void Append(Cloud& cloud, std::shared_ptr<Cloud> next) {
  next->points.insert(next->points.begin(), cloud.points.begin(), cloud.points.end());
  cloud = std::move(*next);
}

/// An NV2's frame as live mode delivers it, whichever frame was played before. A line is a packet, and a
/// frame ends with the packet whose line number fell, whole; the play of the next frame begins in it, after
/// its first measurement.
void AsLive(int frame, Cloud& cloud) {
  constexpr std::size_t kRestOfPacket = 191;
  if (frame > 0) {
    const auto rest = static_cast<std::ptrdiff_t>(std::min(cloud.points.size(), kRestOfPacket));
    cloud.points.erase(cloud.points.begin(), cloud.points.begin() + rest);
  }
}

/// What every change of a file changes; of none where there is none.
std::pair<std::uintmax_t, std::filesystem::file_time_type> StateOf(const std::string& path) {
  std::error_code ignored;
  return {std::filesystem::file_size(path, ignored), std::filesystem::last_write_time(path, ignored)};
}

}  // namespace

ReplaySession::ReplaySession(const DriverParam& param)
    : param_(param),
      state_(StateOf(param.input_param.pcap_path)),
      joins_parts_(param.lidar_type == NV2),
      imu_packets_(param.lidar_type) {
  CheckCapture(param.input_param.pcap_path);
  driver_.RegisterPointCloudCallBack([this](std::shared_ptr<Cloud> cloud) { Put(std::move(cloud)); },
                                     [] { return std::make_shared<Cloud>(); });
  driver_.RegisterPacketCallBack([this](const std::uint8_t* data, std::size_t length, double received) {
    TakePacket(data, length, received);
  });
  driver_.RegisterExceptionCallBack([this](const Error& error) {
    saw_wrong_length_ = saw_wrong_length_ || error.error_code == ERROR_MSOP_LENGTH;
    saw_wrong_id_ = saw_wrong_id_ || error.error_code == ERROR_MSOP_ID;
  });
  if (!driver_.InitDriver(param_)) {
    throw Failure("the driver cannot replay " + param_.input_param.pcap_path +
                  ": it is damaged, or of a link type that the driver does not know. 'orva info' on it tells "
                  "more; record with 'tcpdump -i INTERFACE udp -w FILE'.");
  }
}

ReplaySession::~ReplaySession() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_all();
  driver_.Stop();
}

void ReplaySession::StartIndex() {
  if (!driver_.Start()) {
    throw Failure("the system refuses a thread for the replay. Close some programs and try again.");
  }
}

int ReplaySession::FinishIndex() {
  int frames = 0;
  while (!driver_.GetLocalFileStatus(frames)) {
    if (Interrupted()) {
      throw Failure("interrupted while reading the recording; nothing was written.");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  frames_ = frames;
  // A recording that ends with a frame end would end with a frame without a point.
  if (frames > 1 && TraitsOf(param_.lidar_type).has_points) {
    const Played last = PlayOne(frames - 1);
    frames -= last.cloud != nullptr && last.cloud->points.empty();
  }
  return frames;
}

void ReplaySession::Play(const std::vector<int>& frames, const Take& take) {
  if (frames.empty()) {
    return;
  }
  std::deque<Finished> finished;
  Begin(frames.front());
  for (std::size_t i = 0; i < frames.size() && !Interrupted(); ++i) {
    if (past_end_ && i > 0) {
      Begin(frames[i]);
    }
    past_end_ = EndsRecording(frames[i]);
    // After the last frame it is asked for once more: that the driver accepts this tells that the play is
    // over.
    const int next = frames[i + 1 < frames.size() ? i + 1 : i];
    std::shared_ptr<Cloud> held;
    int part = 0;
    const auto give = [&] {
      if (held != nullptr) {
        take(frames[i], part++, *held);
        origin_.imu.clear();
      }
    };
    stood_since_ = Clock::now();
    for (bool over = false; !over && !Interrupted();) {
      over = RequestNext(next, finished);
      if (!over) FailWhereRecordingChanged();
      for (; !finished.empty(); finished.pop_front()) {
        if (joins_parts_ && held != nullptr) {
          Append(*held, std::move(finished.front().cloud));
        } else {
          give();
          held = std::move(finished.front().cloud);
        }
        Follow(origin_, std::move(finished.front().origin));
      }
    }
    if (!Interrupted()) {
      if (joins_parts_ && held != nullptr) {
        AsLive(frames[i], *held);
      }
      give();
    }
  }
}

ReplaySession::Played ReplaySession::PlayOne(int frame) {
  std::deque<Finished> finished;
  Begin(frame);
  Played played;
  std::shared_ptr<Cloud> cloud;
  // Where parts are joined, the driver is asked for the frame once more to tell when it is over. Else the
  // first cloud is the frame, and there is no need to wait.
  for (bool over = false; !over && !Interrupted();) {
    if (joins_parts_) {
      over = RequestNext(frame, finished);
    } else {
      std::unique_lock lock(mutex_);
      over = changed_.wait_for(lock, kLongestWait, [this] { return !clouds_.empty(); });
      finished.swap(clouds_);
      changed_.notify_all();
    }
    if (!over) FailWhereRecordingChanged();
    for (; !finished.empty(); finished.pop_front()) {
      Finished& next = finished.front();
      if (cloud == nullptr) {
        cloud = std::move(next.cloud);
        played.origin = std::move(next.origin);
      } else if (joins_parts_) {
        Append(*cloud, std::move(next.cloud));
        Follow(played.origin, std::move(next.origin));
      }
    }
  }
  if (joins_parts_ && cloud != nullptr) {
    AsLive(frame, *cloud);
  }
  played.cloud = std::move(cloud);
  return played;
}

/// The recording's end is not a frame's: what it leaves in the decoder, such as a time, would go into the
/// frame that is played next. So the first one is played in between, for nothing.
bool ReplaySession::EndsRecording(int frame) const {
  return frames_ > 1 && frame + 1 == frames_;
}

/// Starts a play; what an earlier one still gives is not wanted any more.
void ReplaySession::Begin(int frame) {
  if (std::exchange(past_end_, EndsRecording(frame))) {
    Request(0);
  }
  Request(frame);
}

void ReplaySession::Request(int frame) {
  std::deque<Finished> unwanted;
  stood_since_ = Clock::now();
  while (!RequestNext(frame, unwanted) && !Interrupted()) {
    FailWhereRecordingChanged();
    unwanted.clear();
  }
}

/// The driver waits without end for the first packet of a frame that is not there any more: the recording was
/// cut, or written anew, since it was indexed.
void ReplaySession::FailWhereRecordingChanged() {
  const Clock::time_point now = Clock::now();
  if (now - looked_ < kLongestWait) return;
  looked_ = now;
  const DriverStatistics s = Statistics();
  const std::uint64_t packets = s.plays + s.decoded + s.refused_length + s.refused_identifier;
  if (packets != std::exchange(packets_, packets)) stood_since_ = now;
  if (now - stood_since_ < kStandstill || StateOf(param_.input_param.pcap_path) == state_) return;
  int frames = 0;
  driver_.GetLocalFileStatus(frames);  // ends the play, so that another frame can be asked for
  throw Failure(param_.input_param.pcap_path +
                " was cut or replaced while it was replayed. What was written so far is complete.");
}

DriverStatistics ReplaySession::Statistics() {
  DriverStatistics statistics;
  driver_.GetStatistics(statistics);
  return statistics;
}

/// Takes the clouds of the play under way, and starts the next play if that one is over. No cloud of the next
/// play gets among them: Put waits for the lock.
bool ReplaySession::RequestNext(int frame, std::deque<Finished>& finished) {
  std::unique_lock lock(mutex_);
  const bool accepted = driver_.SetLocalFrame(frame);
  if (!accepted && clouds_.empty()) {
    changed_.wait_for(lock, kRetry);
  }
  finished.swap(clouds_);
  changed_.notify_all();
  return accepted;
}

void ReplaySession::TakePacket(const std::uint8_t* data, std::size_t length, double received) {
  if (coming_.first_packet == 0.0) {
    coming_.first_packet = received;
  }
  coming_.last_packet = received;
  if (const auto sample = imu_packets_.Read(data, length)) {
    coming_.imu.emplace_back(*sample, received);
  }
}

void ReplaySession::Put(std::shared_ptr<Cloud> cloud) {
  driver_.GetStatistics(coming_.statistics);
  FrameOrigin origin = std::exchange(coming_, {});
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return closing_ || clouds_.size() < kWaitingClouds; });
  if (!closing_) {
    clouds_.push_back({std::move(cloud), std::move(origin)});
    changed_.notify_all();
  }
}

}  // namespace orva
