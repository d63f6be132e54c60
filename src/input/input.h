// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "input/buffer.h"
#include "orva_driver.h"

namespace tevoro::lidar {

/// A source of sensor packets: a socket or a capture file. Used by one thread at a time.
class Input {
 public:
  explicit Input(const InputParam& param)
      : address_(param.host_ip), port_(param.msop_port), pcap_path_(param.pcap_path) {}
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  virtual ~Input() = default;

  /// Opens the source. False, after a message, when that fails.
  virtual bool Init() = 0;

  /// Fetches one packet into `buffer` and sets its offset to 0 and its length.
  /// `size`: largest number of bytes to take (socket). `position` and `record` (file): with `record` the
  /// position of the next record is stored before reading, without it reading starts at `position`;
  /// null does neither.
  /// Returns the packet's bytes; 0: nothing this time, ask again; -1: receive error or end of file.
  virtual int RecvPacket(std::shared_ptr<Buffer>& buffer, const int& size, long* position,
                         const bool& record) = 0;

 protected:
  std::string address_;
  uint16_t port_;
  std::string pcap_path_;
};

}  // namespace tevoro::lidar
