// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "random.h"
#include "sensor.h"
#include "udp_endpoint.h"

namespace orva::sim {

/// How a data stream can go wrong on its way: the share of the packets, 0 to 1, that suffers it.
struct StreamFaults {
  double drop = 0.0;
  double duplicate = 0.0;
  double reorder = 0.0;       ///< sent after the packet that follows
  double corrupt = 0.0;       ///< one byte changed, half of the time in the identifier
  double wrong_length = 0.0;  ///< one byte too many or too few
  uint64_t seed = 1;
};

struct StreamCounts {
  uint64_t sent = 0;       ///< datagrams that left
  uint64_t refused = 0;    ///< datagrams that the system did not take
  uint64_t disturbed = 0;  ///< packets that suffered a fault
};

/// Plays a source's packets on a UDP socket, each when its time has come: the packets' own times give the
/// pace. Works on a thread of its own from construction until the source ends or the object goes.
class LiveSensor {
 public:
  /// Sends from `source_ip` to `ip`:`port`. Throws std::runtime_error or std::invalid_argument when the
  /// addresses are of no use.
  LiveSensor(std::unique_ptr<PacketSource> source, const std::string& ip, uint16_t port,
             const StreamFaults& faults = {}, const std::string& source_ip = "0.0.0.0");

  /// True once the source has ended and everything is sent. From any thread.
  bool Done() const { return done_; }
  /// Waits for that.
  void Join() {
    if (thread_.joinable()) thread_.join();
  }
  /// From any thread.
  StreamCounts Counts() const;

 private:
  void Play(const std::stop_token& stop);
  void Deliver(const TimedPacket& packet);
  void Send(std::span<const uint8_t> bytes);
  bool Befalls(double share);

  const std::unique_ptr<PacketSource> source_;
  const StreamFaults faults_;
  Random random_;
  const sockaddr_in destination_;
  const UdpEndpoint endpoint_;
  std::vector<uint8_t> disturbed_packet_;
  std::vector<uint8_t> held_back_;  ///< a packet that lets the next one pass; empty: none
  std::atomic<uint64_t> sent_{0};
  std::atomic<uint64_t> refused_{0};
  std::atomic<uint64_t> disturbed_{0};
  std::atomic<bool> done_{false};
  std::jthread thread_;
};

}  // namespace orva::sim
