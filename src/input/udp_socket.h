// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "common/failure_report.h"

namespace tevoro::lidar {

/// The non-blocking IPv4 datagram socket that the data input and the command channel share. Does not close
/// itself: when that happens is a matter of its owner.
class UdpSocket {
 public:
  /// Opens, binds and tunes the socket. An empty `address`, or one that is not in dotted form, binds to all
  /// interfaces; port 0 lets the kernel choose. False after a line on standard error; the socket is then
  /// closed, unless only the switch to non-blocking mode failed.
  bool Open(const std::string& address, uint16_t port);
  /// Harmless when repeated.
  void Close();

  bool SetNonblock();
  /// Ask for four times the kernel's buffer, to ride out bursts; the kernel may grant less.
  void SetReadBuffer();
  void SetWriteBuffer();

  /// Wait until the socket is readable or writable, at most `milliseconds`. False on timeout or error; a line
  /// on standard error says when errors begin.
  bool WaitReadEvent(int milliseconds);
  bool WaitWriteEvent(int milliseconds);

  /// Bytes that the kernel grants for waiting datagrams, its own overhead included; 0 when it does not tell.
  uint64_t ReadBuffer() const;
  /// Datagrams that the kernel dropped on this socket, because the buffer was full or the checksum wrong.
  /// 0 where the system does not tell; wraps at 2^32.
  uint32_t Drops() const;

  int32_t Descriptor() const { return socket_; }

 private:
  bool Report(int ready);

  int32_t socket_ = -1;
  FailureReport wait_failures_{"select failed"};
};

/// Socket address of a dotted `address`; any address when that is empty or no address.
sockaddr_in MakeAddress(const std::string& address, uint16_t port);

}  // namespace tevoro::lidar
