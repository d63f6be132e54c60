// SPDX-License-Identifier: Apache-2.0
//
// The calibration download against a sensor that answers soundly, wrongly or not at all. Stands between the
// program that links it and the system: sockets and waiting are played, so that hours pass at once.
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <numeric>
#include <string>

#include "expect.h"
#include "online/calibration_loader.h"
#include "support/calibrations.h"
#include "targets.h"

namespace orva::fuzz {
namespace {

constexpr int64_t kMillisecond = 1'000'000;
struct StopAsked {};  ///< ends the loader's loop, as the flag of its thread would

const test::CheckParam& Sent() {
  static test::Random random(1);
  static const auto calibration = test::PlausibleCalibration(random);
  return *calibration;
}

class Sensor {
 public:
  Sensor(const uint8_t* data, size_t size) : data_(data), left_(std::min<size_t>(size, 64)) {
    static const std::string whole = test::SectionStream(Sent());
    static const std::string small = test::SectionStream(Sent(), "CD");
    stream_ = Next() % 16 == 0 && OneIn(128, data, size) ? &whole : &small;  // whole ones take milliseconds
  }

  bool Over() const { return left_ == 0 && sound_ == 0; }
  bool Honest() const { return honest_; }
  bool Whole() const { return stream_->size() > 1000; }
  int64_t Now() const { return now_; }
  void Pass(int64_t seconds, int64_t nanoseconds) { now_ += seconds * 1000 * kMillisecond + nanoseconds; }

  void TakeRequest(const uint8_t* request, size_t size) {
    ORVA_EXPECT(size == 12 && std::all_of(request, request + 4, [](uint8_t byte) { return byte == 0xA5; }));
    const auto sum = [](uint8_t a, uint8_t b) { return static_cast<uint8_t>(a + b); };
    ORVA_EXPECT(request[11] == std::accumulate(request, request + 11, uint8_t{0}, sum));
    ORVA_EXPECT(now_ >= next_request_);  // no answer makes the driver flood the sensor
    next_request_ = now_ + kMillisecond;
    offset_ = request[5] | request[6] * 0x100U | request[7] * 0x10000U | request[8] * 0x1000000U;
    count_ = request[9] | request[10] * 0x100U;
    asked_ = true;
  }

  /// What happens next on the channel: true, and a datagram waits.
  bool Speak() {
    if (sound_ == 0) {
      if (left_ == 0) Stop();
      deed_ = Next();
      if (deed_ % 8 < 3) sound_ = 1 << (deed_ / 8 % (Whole() ? 8 : 4));
    }
    if (sound_ > 0) {
      --sound_;
      if (asked_) reply_ = test::CalibrationReply(stream_->size(), Piece());
      return std::exchange(asked_, false);
    }
    if (deed_ % 8 == 3) {
      if (deed_ / 8 % 4 == 0) Stop();
      return false;  // nothing comes
    }
    honest_ = false;
    asked_ = false;
    const size_t place = reply_.empty() ? 0 : (Next() * 8U + deed_ / 8) % reply_.size();
    if (deed_ % 8 == 4 && !reply_.empty()) reply_[place] = static_cast<char>(Next());
    if (deed_ % 8 == 5) reply_.resize(place);
    if (deed_ % 8 == 6) reply_ = "ZZZZ" + std::string(Next() * 8U, static_cast<char>(Next()));
    return true;  // or the last one again
  }

  ssize_t Give(void* data, size_t room) const {
    const size_t size = std::min(room, reply_.size());
    std::memcpy(data, reply_.data(), size);
    return static_cast<ssize_t>(size);
  }

 private:
  [[noreturn]] void Stop() {
    next_request_ = now_;
    throw StopAsked();
  }
  uint8_t Next() { return left_ == 0 ? uint8_t{0} : (--left_, *data_++); }
  std::string Piece() const {
    return offset_ < stream_->size() ? stream_->substr(offset_, count_) : std::string(count_, '\0');
  }

  const uint8_t* data_;
  size_t left_;
  const std::string* stream_;
  int64_t now_ = 0;  ///< nanoseconds
  int64_t next_request_ = 0;
  size_t offset_ = 0;
  size_t count_ = 0;
  bool asked_ = false;
  bool honest_ = true;  ///< so far
  uint8_t deed_ = 0;
  int sound_ = 0;  ///< requests that are still answered as they should be
  std::string reply_;
};

Sensor* sensor = nullptr;

}  // namespace

void CommandChannel(const uint8_t* data, size_t size) {
  static auto& running = *new tevoro::lidar::WorkerThread("running");
  running.Start([] {});
  static const auto service = std::make_shared<tevoro::lidar::ParamService>();
  service->RestartStream();
  tevoro::lidar::CalibrationLoader loader(TS4B, {}, service);
  ORVA_EXPECT(loader.Init());
  Sensor peer(data, size);
  sensor = &peer;
  int taken = 0;
  while (!peer.Over()) {
    try {
      loader.Run(running);
    } catch (const StopAsked&) {
    }
    taken += loader.TakeRecord() ? 1 : 0;
  }
  sensor = nullptr;
  ORVA_EXPECT(taken <= 1 && (taken == 1 || loader.FilledSections() == 0));
  if (taken == 0 || !peer.Honest()) return;
  const test::CheckParam& record = *service->GetCheckParam(TS4B);
  ORVA_EXPECT(loader.FilledSections() == (peer.Whole() ? 4 : 2) && loader.FilledAll() == peer.Whole());
  ORVA_EXPECT(std::memcmp(&record.weight, &Sent().weight, sizeof(record.weight)) == 0);
  if (peer.Whole()) ORVA_EXPECT(std::memcmp(&record, &Sent(), sizeof(record)) == 0);
}

}  // namespace orva::fuzz

using orva::fuzz::sensor;

// Nothing else in this program uses the first three.

extern "C" int select(int, fd_set* read, fd_set*, fd_set*, timeval* timeout) {
  if (read == nullptr || sensor->Speak()) return 1;
  sensor->Pass(timeout->tv_sec, timeout->tv_usec * 1000);
  return 0;
}

extern "C" ssize_t recvfrom(int, void* data, size_t size, int, sockaddr*, socklen_t*) {
  return sensor->Give(data, size);
}

extern "C" ssize_t sendto(int, const void* data, size_t size, int, const sockaddr*, socklen_t) {
  sensor->TakeRequest(static_cast<const uint8_t*>(data), size);
  return static_cast<ssize_t>(size);
}

extern "C" int nanosleep(const timespec* time, timespec* left) {
  if (sensor == nullptr) return static_cast<int>(syscall(SYS_nanosleep, time, left));
  sensor->Pass(time->tv_sec, time->tv_nsec);
  return 0;
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  // The wall clock stays real: the fuzzer watches a run by it, from a signal.
  if (sensor == nullptr || clock != CLOCK_MONOTONIC)
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  *time = {sensor->Now() / (1000 * orva::fuzz::kMillisecond),
           sensor->Now() % (1000 * orva::fuzz::kMillisecond)};
  return 0;
}
