// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/counter.h"
#include "input/input.h"
#include "input/udp_socket.h"

namespace tevoro::lidar {

/// Receives a live sensor's datagrams. Destroying it leaves the socket open: whoever drops it calls Close.
class InputSock : public Input {
 public:
  explicit InputSock(const InputParam& param) : Input(param) {}

  bool Init() override { return socket_.Open(address_, port_); }
  /// Waits at most 100 ms for a datagram. One that is longer than `size` is cut. The buffer is untouched
  /// unless the result is above 0.
  int RecvPacket(std::shared_ptr<Buffer>& buffer, const int& size, long* position,
                 const bool& record) override;

  bool WaitReadEvent(const int& milliseconds) { return socket_.WaitReadEvent(milliseconds); }
  void Close() { socket_.Close(); }
  int32_t Descriptor() const { return socket_.Descriptor(); }

  // For statistics, from any thread while the socket is open.
  uint64_t EmptyDatagrams() const { return empty_.Value(); }  ///< arrived, and given to nobody
  uint32_t Drops() const { return socket_.Drops(); }
  uint64_t ReadBuffer() const { return socket_.ReadBuffer(); }

  // Settled by Init, or for a sender; part of the input's interface. Unreached: nothing here calls them.
  bool SetNonblock() { return socket_.SetNonblock(); }
  void SetReadBuffer() { socket_.SetReadBuffer(); }
  void SetWriteBuffer() { socket_.SetWriteBuffer(); }
  bool WaitWriteEvent(const int& milliseconds) { return socket_.WaitWriteEvent(milliseconds); }

 private:
  UdpSocket socket_;
  Counter empty_;
};

}  // namespace tevoro::lidar
