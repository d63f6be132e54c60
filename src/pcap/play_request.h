// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

namespace tevoro::lidar {

/// The one play request of a replay: which frame the application wants, and how far the replay thread got
/// with it. Requests are numbered, so that a turn that still works for a cancelled request cannot touch the
/// next one.
class PlayRequest {
 public:
  static constexpr int32_t kNextPacket = -1;

  /// What the replay thread works on in one turn.
  struct Turn {
    uint32_t number = 0;          ///< of the request; 0: none
    int32_t frame = kNextPacket;  ///< frame to seek to, or kNextPacket
    explicit operator bool() const { return number != 0; }
  };

  /// False when a request is under way.
  bool Ask(int32_t frame) {
    uint64_t old = state_;
    if (Unpack(old)) return false;
    uint32_t number = ++last_number_;
    if (number == 0) number = ++last_number_;
    return state_.compare_exchange_strong(old, Pack({number, frame}));
  }

  Turn Current() const { return Unpack(state_); }

  void Cancel() { state_ = 0; }

  /// The first packet of the frame is read: go on with the packets that follow.
  void Continue(const Turn& turn) { Replace(turn, Pack({turn.number, kNextPacket})); }

  /// The frame is complete.
  void Finish(const Turn& turn) { Replace(turn, 0); }

 private:
  static uint64_t Pack(const Turn& turn) {
    return uint64_t{turn.number} << 32 | static_cast<uint32_t>(turn.frame);
  }
  static Turn Unpack(uint64_t state) {
    return {static_cast<uint32_t>(state >> 32), static_cast<int32_t>(static_cast<uint32_t>(state))};
  }
  void Replace(const Turn& from, uint64_t to) {
    uint64_t old = Pack(from);
    state_.compare_exchange_strong(old, to);
  }

  std::atomic<uint64_t> state_{0};  ///< number and frame in one word; 0: no request
  std::atomic<uint32_t> last_number_{0};
};

}  // namespace tevoro::lidar
