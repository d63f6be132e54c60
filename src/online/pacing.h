// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace tevoro::lidar {

/// The pause of 1 microsecond that a worker makes in each cycle, and how exactly the kernel keeps to it.
///
/// What a pause really takes is the thread's timer slack, the time by which the kernel may be late in order
/// to gather wake-ups. Medians on a virtual machine, of one thread that polls without any packet:
///
///   slack                   pause     CPU while polling
///   50 us (the default)     75 us     26 %
///   1 ns                    15 us     100 %
///   1 ms                    1.03 ms   2 %
///
/// A thread that took one packet a pause would be capped near 13,000 packets/s, while the fastest sensor
/// sends 15,400 at 20 Hz. So a cycle takes what waits: packets that stand behind one another are taken in one
/// run, and the pause follows the last of them. Short pauses would keep up as well, but cost a core. A second
/// without any packet makes the pauses long. Made and used by the thread that it paces.
class Pacing {
 public:
  enum class Cycle {
    kIdle,     ///< no packet
    kPacket,   ///< a packet, and none behind it
    kBacklog,  ///< a packet, and more are waiting
  };

  /// Ends a cycle of the given kind with the pause; a backlog is worked off first.
  void Sleep(Cycle cycle);

 private:
  using Clock = std::chrono::steady_clock;

  unsigned long WantedSlack(Cycle cycle);

  int run_ = 0;              ///< packets of a backlog since the latest pause
  unsigned long slack_ = 0;  ///< nanoseconds; 0: the default
  Clock::time_point last_packet_ = Clock::now();
};

/// Tells whether a receive call returned at once: then the sender is ahead of the receiver.
class ReceiveTimer {
 public:
  bool DidNotWait() const { return Clock::now() - begin_ < kPromptReceive; }

 private:
  using Clock = std::chrono::steady_clock;
  /// Fetching a datagram that is there takes 2 to 6 microseconds, the wake-up from a wait alone more than 20.
  static constexpr std::chrono::microseconds kPromptReceive{20};

  Clock::time_point begin_ = Clock::now();
};

}  // namespace tevoro::lidar
