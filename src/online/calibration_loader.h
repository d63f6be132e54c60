// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "common/counter.h"
#include "common/out_of_memory.h"
#include "common/worker_thread.h"
#include "input/udp_select.h"
#include "orva_driver.h"
#include "param/param_service.h"

namespace tevoro::lidar {

/// Downloads the calibration over the sensor's command channel while points are already flowing.
///
/// Run belongs to the load thread, TakeRecord to the decoding thread; the two meet in atomic flags only. The
/// calibration service is the load thread's until TakeRecord has returned true.
class CalibrationLoader {
 public:
  CalibrationLoader(const LidarType& type, const CalibrationParam& param,
                    std::shared_ptr<ParamService> service)
      : type_(type), channel_(param), service_(std::move(service)) {}
  CalibrationLoader(const CalibrationLoader&) = delete;
  CalibrationLoader& operator=(const CalibrationLoader&) = delete;

  /// Opens the command channel.
  bool Init() { return channel_.Init(); }

  /// Asks for the calibration chunk by chunk until the record is filled, then keeps draining the channel;
  /// returns when `thread` is to end. A sensor that never answers is asked for ever. After a download that
  /// was broken off it begins anew.
  void Run(const WorkerThread& thread);

  /// True once, when the record is filled and waits to be given to the decoder.
  bool TakeRecord();

  // From any thread.
  uint64_t ReceivedBytes() const { return received_bytes_.Value(); }  ///< of the calibration stream
  int32_t FilledSections() const { return filled_sections_; }         ///< by the completed download
  /// The download is complete and has filled every section that the model takes.
  bool FilledAll() const { return filled_all_; }
  uint64_t OutOfMemory() const { return out_of_memory_.Value(); }  ///< replies dropped for want of memory

 private:
  /// What one run of the thread remembers between requests.
  struct Progress;

  void BeginAnew(const WorkerThread& thread);
  void Idle();
  bool Send(Progress& progress);
  void AwaitReply(Progress& progress);
  void TakeReply(Progress& progress, const char* reply, int length);

  const LidarType type_;
  UDPSelect channel_;
  std::shared_ptr<ParamService> service_;
  std::atomic<bool> load_enabled_{true};        ///< download wanted; false: the channel is only drained
  std::atomic<bool> apply_pending_{true};       ///< the decoder has not got the record yet
  std::atomic<bool> download_complete_{false};  ///< the record is filled
  std::atomic<bool> request_outstanding_{false};
  std::atomic<int32_t> filled_sections_{0};
  std::atomic<bool> filled_all_{false};
  bool begun_ = false;  ///< the load thread's own
  Counter received_bytes_;
  Counter out_of_memory_;
};

/// Stores the sum of a command's other bytes, modulo 256, in its last byte.
void GetCommand(uint8_t* command, size_t length);

}  // namespace tevoro::lidar
