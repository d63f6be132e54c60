// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <mutex>

namespace tevoro::lidar {

/// Which of the kernel's drops on the data socket are losses. Once receiving has ended nobody reads, and a
/// sensor that goes on sending overflows the open socket: that costs the application nothing it waits for, so
/// it counts neither then nor after a further start. What overflows between set-up and the first start does:
/// the port is bound by then, and the application waits for these packets.
///
/// The totals are the socket's own, which wrap at 2^32; so does what is left of them. Any thread.
class KernelDrops {
 public:
  void ReceivingBegins(uint32_t total) {
    const std::lock_guard lock(mutex_);
    if (!receiving_) unread_ += total - total_at_end_;
    receiving_ = true;
  }
  void ReceivingEnds(uint32_t total) {
    const std::lock_guard lock(mutex_);
    receiving_ = false;
    total_at_end_ = total;
  }
  uint32_t Losses(uint32_t total) const {
    const std::lock_guard lock(mutex_);
    return (receiving_ ? total : total_at_end_) - unread_;
  }

 private:
  mutable std::mutex mutex_;
  bool receiving_ = true;
  uint32_t total_at_end_ = 0;
  uint32_t unread_ = 0;  ///< dropped while receiving had ended
};

}  // namespace tevoro::lidar
