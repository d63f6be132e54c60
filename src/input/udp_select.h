// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "common/failure_report.h"
#include "input/udp_socket.h"
#include "orva_driver.h"

namespace tevoro::lidar {

/// Datagram channel to the sensor's command port. What the configuration leaves open of the sensor's address
/// and port is learnt from the first datagram. Used by one thread at a time.
class UDPSelect final {
 public:
  explicit UDPSelect(const CalibrationParam& param)
      : local_port_(param.local_port),
        local_ip_(param.local_ip),
        lidar_port_(param.lidar_port),
        lidar_ip_(param.lidar_ip) {}
  UDPSelect(const UDPSelect&) = delete;
  UDPSelect& operator=(const UDPSelect&) = delete;
  ~UDPSelect() { Close(); }

  /// Waits at most 100 ms for a datagram and takes at most `length` bytes of it. Returns its bytes;
  /// 0: nothing came; -1: receive error or an empty datagram.
  virtual int RecvData(char* data, const int& length);
  /// Waits at most 100 ms for room, then sends one datagram. True when all of it went out. A line on standard
  /// error says when errors begin, once the sensor's address is known.
  virtual bool SendData(const char* data, const int& length);

  /// False, after a line on standard error, when the local socket cannot be opened or bound.
  bool Init() { return socket_.Open(local_ip_, static_cast<uint16_t>(local_port_)); }
  void Close() { socket_.Close(); }
  bool WaitReadEvent(const int& milliseconds) { return socket_.WaitReadEvent(milliseconds); }
  bool WaitWriteEvent(const int& milliseconds) { return socket_.WaitWriteEvent(milliseconds); }

  // Settled by Init; part of the channel's interface. Unreached: nothing here calls them one by one.
  bool SetNonblock() { return socket_.SetNonblock(); }
  void SetReadBuffer() { socket_.SetReadBuffer(); }
  void SetWriteBuffer() { socket_.SetWriteBuffer(); }

 private:
  int32_t local_port_;
  std::string local_ip_;
  int32_t lidar_port_;    ///< 0: not yet known
  std::string lidar_ip_;  ///< empty: not yet known
  UdpSocket socket_;
  FailureReport send_failures_{"sendto failed"};
};

}  // namespace tevoro::lidar
