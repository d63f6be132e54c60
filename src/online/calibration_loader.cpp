// SPDX-License-Identifier: Apache-2.0
#include "online/calibration_loader.h"

#include <algorithm>
#include <numeric>
#include <thread>
#include <utility>

#include "param/calibration_wire.h"

namespace tevoro::lidar {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace request = calibration_request;

constexpr uint16_t CALIB_CHUNK_REQUEST = 1000;
constexpr uint16_t kClosingRequest = 100;  // asked once more where the end came unannounced
constexpr microseconds kRetryAfter{10'000};
constexpr milliseconds kBetweenRequests{1};
constexpr milliseconds kMostLateReplies{1000};

class Request {
 public:
  Request() {
    std::fill_n(bytes_ + request::kMagic, 4, request::kMagicByte);
    SetChunk(0, CALIB_CHUNK_REQUEST);
  }

  void SetLastChunk(bool last) { bytes_[request::kLastChunk] = last ? 1 : 0; }
  void SetChunk(uint32_t offset, uint16_t count) {
    for (size_t i = 0; i < 4; ++i) bytes_[request::kOffset + i] = static_cast<uint8_t>(offset >> (8 * i));
    for (size_t i = 0; i < 2; ++i) bytes_[request::kCount + i] = static_cast<uint8_t>(count >> (8 * i));
  }
  bool Send(UDPSelect& channel) {
    GetCommand(bytes_, sizeof(bytes_));
    return channel.SendData(reinterpret_cast<const char*>(bytes_), int{sizeof(bytes_)});
  }

 private:
  uint8_t bytes_[request::kBytes] = {};  // GetCommand sets the checksum
};

}  // namespace

struct CalibrationLoader::Progress {
  Request request;
  bool last_chunk = false;  ///< the request announced the end of the stream
  bool waiting = false;     ///< a reply may still come in time
  Clock::time_point sent = Clock::now();
  uint32_t offset = 0;  ///< sum of the counts asked for, whatever the sensor gave
  int step = CALIB_CHUNK_REQUEST;
};

void CalibrationLoader::Run(const WorkerThread& thread) {
  Progress progress;
  request_outstanding_ = false;
  if (begun_ && !download_complete_) BeginAnew(thread);
  begun_ = true;
  while (thread.Running()) {
    if (!load_enabled_) {
      Idle();
    } else if (request_outstanding_ || Send(progress)) {
      AwaitReply(progress);
    } else {
      std::this_thread::sleep_for(kBetweenRequests);
    }
  }
}

bool CalibrationLoader::TakeRecord() {
  if (!apply_pending_ || !download_complete_) return false;
  apply_pending_ = false;
  return true;
}

/// A reply does not say which bytes it carries. What the sensor still has to say to the requests of an
/// earlier run would count as the first bytes of this one, so it is waited for, until the channel is quiet.
void CalibrationLoader::BeginAnew(const WorkerThread& thread) {
  service_->RestartStream();
  char discarded[calibration_reply::kMostBytes];
  const Clock::time_point end = Clock::now() + kMostLateReplies;
  while (thread.Running() && Clock::now() < end) {
    const int length = channel_.RecvData(discarded, calibration_reply::kMostBytes);
    if (length == 0) return;
    if (length < 0) std::this_thread::sleep_for(kBetweenRequests);
  }
}

void CalibrationLoader::Idle() {
  char discarded[calibration_reply::kMostBytes];
  const bool received = channel_.RecvData(discarded, calibration_reply::kMostBytes) > 0;
  std::this_thread::sleep_for(received ? milliseconds(10) : milliseconds(100));
}

bool CalibrationLoader::Send(Progress& progress) {
  if (!progress.request.Send(channel_)) return false;
  request_outstanding_ = true;
  progress.waiting = true;
  progress.sent = Clock::now();
  return true;
}

void CalibrationLoader::AwaitReply(Progress& progress) {
  char reply[calibration_reply::kMostBytes] = {};
  const int length = channel_.RecvData(reply, calibration_reply::kMostBytes);
  if (length <= 0) {
    if (progress.waiting && Clock::now() - progress.sent > kRetryAfter) request_outstanding_ = false;
  } else if (download_complete_) {
    load_enabled_ = false;  // the closing request was answered; its reply says nothing
    return;
  } else {
    // A reply that was not taken has changed nothing: the same request goes out again.
    Survives(out_of_memory_, [&] { TakeReply(progress, reply, length); });
  }
  std::this_thread::sleep_for(kBetweenRequests);
}

void CalibrationLoader::TakeReply(Progress& progress, const char* reply, int length) {
  bool last_chunk = false;
  bool complete = false;
  const int step =
      service_->PushData(type_, reinterpret_cast<const signed char*>(reply), length, last_chunk, complete);
  progress.offset += static_cast<uint32_t>(std::exchange(progress.step, step));
  progress.request.SetLastChunk(last_chunk);
  if (length > calibration_reply::kOverhead && progress.step >= 0) {
    received_bytes_.Add(static_cast<uint64_t>(length - calibration_reply::kOverhead));
  }

  if (complete && progress.last_chunk) {
    load_enabled_ = false;
  } else {
    if (complete) {
      progress.request.SetChunk(0, kClosingRequest);
    } else {
      progress.request.SetChunk(progress.offset, static_cast<uint16_t>(progress.step));
      progress.last_chunk = last_chunk;
    }
    progress.waiting = false;
    request_outstanding_ = false;
  }
  if (!complete) return;
  bool all = false;
  filled_sections_ = static_cast<int32_t>(service_->FilledSections(type_, all));
  filled_all_ = all;
  download_complete_ = true;
}

void GetCommand(uint8_t* command, size_t length) {
  if (length == 0) return;
  command[length - 1] = std::accumulate(command, command + length - 1, uint8_t{0},
                                        [](uint8_t sum, uint8_t b) { return static_cast<uint8_t>(sum + b); });
}

}  // namespace tevoro::lidar
