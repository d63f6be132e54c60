// SPDX-License-Identifier: Apache-2.0
#include "replay_session.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace orva_python {
namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

/// A play ends a moment after its last cloud, without a signal: the next request is repeated, ever less
/// often.
constexpr microseconds kFirstRetry(10);
constexpr microseconds kLastRetry(1000);

/// A play begins at once, unless its first record cannot be read any more.
constexpr std::chrono::seconds kPatience(10);

/// An NV2 frame is found by its second measurement: the first packet, a whole line, also ended the frame
/// before, which has its points.
constexpr std::size_t kPointsOfFirstPacketNv2 = 191;

}  // namespace

template <typename PC>
ReplaySession<PC>::ReplaySession(const DriverParam& param) : param_(param) {
  driver_.RegisterPointCloudCallBack([this](std::shared_ptr<PC> cloud) { Put(std::move(cloud)); },
                                     [this] { return Get(); });
  driver_.RegisterPacketCallBack(
      [this](const uint8_t*, std::size_t, double received) { received_ = received; });
  if (!driver_.InitDriver(param_)) throw Refused("the driver cannot replay this file");
}

template <typename PC>
int ReplaySession<PC>::Index(const Check& check) {
  const auto lock = calls_.Take(check);
  calibrated_ = [this] {
    DriverStatistics statistics;
    return driver_.GetStatistics(statistics) && statistics.calibration == CALIBRATION_FROM_FOLDER;
  }();
  if (!driver_.Start()) throw Refused("the system refuses a thread for the replay");
  int frames = 0;
  while (!driver_.GetLocalFileStatus(frames)) {
    check();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  frames_ = frames;
  if (frames > 0) {
    driver_.SetLocalFrame(playing_ = frames - 1);
    Finish(0, check);
    const auto last = Tidy(frames - 1, std::exchange(collected_, {}));
    const Frame<PC>& end = last.back();
    if (end.cloud->points.size() == end.skipped && last.size() == 1) --frames;
  }
  if (frames == 0) EndThread();  // idle, it would spin
  return frames;
}

template <typename PC>
std::vector<Frame<PC>> ReplaySession<PC>::Play(int frame, int next, const Check& check) {
  const auto lock = calls_.Take(check);
  const auto go_to = [&](int wanted) {
    Finish(wanted, check);
    collected_.clear();
  };
  if (playing_ != frame) go_to(frame);
  if (after_end_) {
    go_to(0);
    go_to(frame);
  }
  Finish(next, check);
  return Tidy(frame, std::exchange(collected_, {}));
}

/// Collects the clouds of the play under way to its end, and starts the play of `next`. When `check` throws,
/// it can be called again.
template <typename PC>
void ReplaySession<PC>::Finish(int next, const Check& check) {
  DriverStatistics before;
  driver_.GetStatistics(before);
  const auto since = steady_clock::now();
  microseconds retry = kFirstRetry;
  std::size_t collected = collected_.size();
  for (bool over = false; !over;) {
    check();
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, collected == 0 ? microseconds(kSlice) : retry,
                      [this] { return closing_ || waiting_.cloud != nullptr; });
    if (closing_) throw Closed("the recording is closed");
    if (waiting_.cloud != nullptr) {
      collected_.push_back(std::exchange(waiting_, {}));
      changed_.notify_all();
    }
    lock.unlock();
    if (collected_.size() != collected) {
      collected = collected_.size();
      retry = kFirstRetry;
    }
    // A play that is over has put its last cloud, and that was taken: what comes from now on is `next`'s.
    over = collected > 0 && driver_.SetLocalFrame(next);
    retry = std::min(2 * retry, kLastRetry);
    if (collected == 0) RequireProgress(before, since);
  }
  after_end_ = frames_ > 1 && playing_ + 1 == frames_;
  playing_ = next;
}

/// A file that was cut while it was open gives no record, and the replay thread tries for ever.
template <typename PC>
void ReplaySession<PC>::RequireProgress(const DriverStatistics& before, steady_clock::time_point since) {
  DriverStatistics now;
  if (steady_clock::now() - since > kPatience && driver_.GetStatistics(now) &&
      now.received == before.received) {
    throw Refused("the recording cannot be read any more: was the file changed?");
  }
}

/// One frame is the same however it was come to. NV2's decoder compares each line with the one before, also
/// with that of an earlier play, and may end a cloud after the first packet.
template <typename PC>
std::vector<Frame<PC>> ReplaySession<PC>::Tidy(int frame, std::vector<Frame<PC>> clouds) const {
  if (param_.lidar_type == NV2) {
    Frame<PC> whole = std::move(clouds.back());
    clouds.pop_back();
    for (auto part = clouds.rbegin(); part != clouds.rend(); ++part) {
      const auto& points = part->cloud->points;
      whole.cloud->points.insert(whole.cloud->points.begin(), points.begin(), points.end());
    }
    whole.skipped = std::min(frame > 0 ? kPointsOfFirstPacketNv2 : 0, whole.cloud->points.size());
    clouds.assign(1, std::move(whole));
  }
  for (std::size_t i = 0; i < clouds.size(); ++i) {
    clouds[i].number = frame;
    clouds[i].part = static_cast<int>(i);
  }
  return clouds;
}

template <typename PC>
DriverStatistics ReplaySession<PC>::Statistics(const Check& check) {
  const auto lock = calls_.Take(check);
  DriverStatistics statistics;
  driver_.GetStatistics(statistics);
  return statistics;
}

template <typename PC>
void ReplaySession<PC>::Close() {
  if (!InOwnProcess()) return;
  LetGo();
  const auto lock = calls_.Take([] {});
  EndThread();
}

/// Ends every wait.
template <typename PC>
void ReplaySession<PC>::LetGo() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
    waiting_ = {};
  }
  changed_.notify_all();
}

template <typename PC>
void ReplaySession<PC>::EndThread() {
  LetGo();
  driver_.Stop();
}

template <typename PC>
std::shared_ptr<PC> ReplaySession<PC>::Get() {
  auto cloud = std::make_shared<PC>();
  cloud->points.reserve(usual_size_);
  return cloud;
}

template <typename PC>
void ReplaySession<PC>::Put(std::shared_ptr<PC> cloud) {
  usual_size_ = cloud->points.size();
  std::unique_lock lock(mutex_);
  if (closing_) return;
  waiting_ = {std::move(cloud), 0, 0, 0, received_, calibrated_};
  changed_.notify_all();
  changed_.wait(lock, [this] { return closing_ || waiting_.cloud == nullptr; });
}

template class ReplaySession<PointCloud<Point>>;
template class ReplaySession<PointCloud<PointTime>>;
template class ReplaySession<PointCloud<PointSource>>;

}  // namespace orva_python
