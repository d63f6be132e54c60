// SPDX-License-Identifier: Apache-2.0
#include "sessions/replay_session.h"

#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "captures/capture_check.h"
#include "shared/failure.h"
#include "shared/interrupt.h"

namespace orva {
namespace {

/// Finished clouds that wait for `take`; beyond them the replay thread waits too, so memory stays bounded.
constexpr std::size_t kWaitingClouds = 3;

/// A play ends a moment after its last cloud, without a signal: the next request is repeated at this pace.
constexpr std::chrono::microseconds kRetry(200);

/// Until Ctrl-C is looked for.
constexpr std::chrono::milliseconds kLongestWait(100);

/// `origin` becomes `next`, with the samples of both: those of a cloud that is not shown are not lost.
void Follow(FrameOrigin& origin, FrameOrigin next) {
  next.imu.insert(next.imu.begin(), origin.imu.begin(), origin.imu.end());
  origin = std::move(next);
}

}  // namespace

ReplaySession::ReplaySession(const DriverParam& param) : param_(param), imu_packets_(param.lidar_type) {
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
    throw Failure(
        "the driver cannot replay " + param_.input_param.pcap_path +
        ": it is damaged, or of a link type that the driver does not know. 'tcpdump -r' on it tells "
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

int ReplaySession::Index(const std::function<void()>& waiting) {
  if (!driver_.Start()) {
    throw Failure("the system refuses a thread for the replay. Close some programs and try again.");
  }
  int frames = 0;
  while (!driver_.GetLocalFileStatus(frames)) {
    if (Interrupted()) {
      throw Failure("interrupted while reading the recording; nothing was written.");
    }
    waiting();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (frames == 0) {
    const InputParam& input = param_.input_param;
    throw Failure(input.msop_port == 0
                      ? "there is no UDP packet in " + input.pcap_path + ". Is it the right recording?"
                      : "nothing in " + input.pcap_path + " was sent to UDP port " +
                            std::to_string(input.msop_port) +
                            ". Give the sensor's data port with --port, or leave --port away to take every "
                            "UDP packet.");
  }
  return frames;
}

void ReplaySession::Play(const std::vector<int>& frames, const Take& take) {
  if (frames.empty()) {
    return;
  }
  // NV2 compares each line with the line before, also with that of the index pass: its play may begin with a
  // short cloud left over from elsewhere. Only the last cloud is the frame.
  const bool last_only = param_.lidar_type == NV2;
  std::deque<Finished> finished;
  RequestNext(frames.front(), finished);
  for (std::size_t i = 0; i < frames.size() && !Interrupted(); ++i) {
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
    for (bool over = false; !over && !Interrupted();) {
      over = RequestNext(next, finished);
      for (; !finished.empty(); finished.pop_front()) {
        if (!last_only) {
          give();
        }
        held = std::move(finished.front().cloud);
        Follow(origin_, std::move(finished.front().origin));
      }
    }
    if (!Interrupted()) {
      give();
    }
  }
}

ReplaySession::Played ReplaySession::PlayOne(int frame) {
  std::deque<Finished> finished;
  while (!RequestNext(frame, finished) && !Interrupted()) {
    finished.clear();  // what an earlier play still gives is not wanted any more
  }
  finished.clear();
  Played played;
  // As in Play, only the last cloud is the frame of an NV2: asked for once more, the driver tells when it is
  // over. Of the others the first one is, and there is no need to wait.
  const bool last_only = param_.lidar_type == NV2;
  for (bool over = false; !over && !Interrupted();) {
    if (last_only) {
      over = RequestNext(frame, finished);
    } else {
      std::unique_lock lock(mutex_);
      over = changed_.wait_for(lock, kLongestWait, [this] { return !clouds_.empty(); });
      finished.swap(clouds_);
      changed_.notify_all();
    }
    if (!finished.empty()) {
      Finished& chosen = last_only ? finished.back() : finished.front();
      played = {std::move(chosen.cloud), std::move(chosen.origin)};
      finished.clear();
    }
  }
  return played;
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
