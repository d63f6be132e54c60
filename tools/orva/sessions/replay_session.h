// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_REPLAY_SESSION_H_
#define ORVA_TOOLS_SESSIONS_REPLAY_SESSION_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "captures/imu_packets.h"
#include "shared/cloud.h"

namespace orva {

/// What came with a cloud. Times are those of the recording, seconds since the epoch.
struct FrameOrigin {
  double first_packet = 0.0;
  double last_packet = 0.0;
  std::vector<std::pair<ImuMsg, double>> imu;  ///< samples since the cloud before, and when each was received
  DriverStatistics statistics;                 ///< as the frame ended
};

/// A recording, opened and indexed, whose frames are played in a chosen order.
class ReplaySession {
 public:
  /// Opens the recording. Throws Failure with the likely reason when the driver refuses it.
  explicit ReplaySession(const DriverParam& param);
  ~ReplaySession();
  ReplaySession(const ReplaySession&) = delete;
  ReplaySession& operator=(const ReplaySession&) = delete;

  /// Begins to read the recording to its end. Throws Failure.
  void StartIndex();
  /// Waits for that, and returns the number of frames that can be played; a last one without a point, which a
  /// frame end at the end of the recording leaves, does not count. Throws Failure when interrupted.
  int FinishIndex();

  const DriverParam& Param() const { return param_; }

  /// `frame`, and `part`: 0, or counted on where one play gives several clouds.
  using Take = std::function<void(int frame, int part, const Cloud& cloud)>;

  /// Plays the frames in order and calls `take` for each on this thread, while the next one is being decoded.
  /// Returns early after Ctrl-C. To be called once, after Index.
  void Play(const std::vector<int>& frames, const Take& take);

  /// While `take` is called: about that cloud.
  const FrameOrigin& Origin() const { return origin_; }

  struct Played {
    std::shared_ptr<const Cloud> cloud;  ///< null after Ctrl-C
    FrameOrigin origin;
  };
  /// Plays one frame, in any order and as often as wanted: instead of Play, where it is not known beforehand
  /// which frames will be needed. From one thread, after Index.
  Played PlayOne(int frame);

  DriverStatistics Statistics();

  /// Packet faults that the driver has reported so far; it throttles them.
  bool saw_wrong_length() const { return saw_wrong_length_; }
  bool saw_wrong_id() const { return saw_wrong_id_; }

 private:
  struct Finished {
    std::shared_ptr<Cloud> cloud;
    FrameOrigin origin;
  };

  bool EndsRecording(int frame) const;
  void Begin(int frame);
  void Request(int frame);
  void FailWhereRecordingChanged();
  bool RequestNext(int frame, std::deque<Finished>& finished);
  void TakePacket(const std::uint8_t* data, std::size_t length, double received);
  void Put(std::shared_ptr<Cloud> cloud);

  using Clock = std::chrono::steady_clock;

  DriverParam param_;
  const std::pair<std::uintmax_t, std::filesystem::file_time_type> state_;  ///< of the recording, at first
  Clock::time_point looked_{};
  Clock::time_point stood_since_{};
  int frames_ = 0;             ///< as the driver counts them
  bool past_end_ = false;      ///< the play under way, or the last one, goes to the recording's end
  std::uint64_t packets_ = 0;  ///< when the driver was last looked at
  /// A play of an NV2 may give its first packet as a cloud of its own: the driver compares each line with the
  /// one before, which may be of the index pass or of another frame.
  bool joins_parts_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Finished> clouds_;  ///< of the play under way, not yet taken
  bool closing_ = false;
  FrameOrigin origin_;
  FrameOrigin coming_;  ///< of the frame that is being decoded; the replay thread's own
  ImuPackets imu_packets_;
  std::atomic<bool> saw_wrong_length_ = false;
  std::atomic<bool> saw_wrong_id_ = false;
  OrvaDriver<Cloud> driver_;  ///< last, so that its threads end before what they use goes
};

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_REPLAY_SESSION_H_
