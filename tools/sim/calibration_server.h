// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "calibration.h"
#include "model.h"
#include "random.h"
#include "udp_endpoint.h"

namespace orva::sim {

/// What a unit stores of its calibration, as the command channel transfers it: sections of four equal
/// letters and their contents.
std::vector<uint8_t> MakeCalibrationStream(const Calibration& calibration, const Model& model);

/// How a command port can misbehave. The default behaves.
struct ReplyFaults {
  bool silent = false;                ///< never answers
  double garbled = 0.0;               ///< share of the replies that are random bytes, 0 to 1
  std::chrono::milliseconds late{0};  ///< pause before each reply
  uint32_t repeats = 0;               ///< further copies of each reply
  uint32_t claimed_length = 0;        ///< announced as the stream's length instead of the true one; 0: true
};

/// A request for a piece of the stream.
struct CalibrationRequest {
  uint8_t last_chunk = 0;
  uint32_t offset = 0;
  uint16_t count = 0;
};

/// The sensor's command port: hands out the calibration stream piece by piece, to whoever asks. Datagrams
/// that are no proper request are ignored. Answers on a thread of its own while the object lives.
class CalibrationServer {
 public:
  /// Port 0: chosen by the kernel. Throws std::runtime_error when the port cannot be had.
  CalibrationServer(std::vector<uint8_t> stream, const std::string& ip, uint16_t port,
                    const ReplyFaults& faults = {});

  uint16_t Port() const { return endpoint_.Port(); }
  /// Every proper request so far, in order. From any thread.
  std::vector<CalibrationRequest> Requests() const;

 private:
  void Serve(const std::stop_token& stop);
  std::vector<uint8_t> MakeReply(const CalibrationRequest& request);

  const std::vector<uint8_t> stream_;
  const ReplyFaults faults_;
  Random random_{1};
  UdpEndpoint endpoint_;
  mutable std::mutex mutex_;
  std::vector<CalibrationRequest> requests_;
  std::jthread thread_;
};

}  // namespace orva::sim
