// SPDX-License-Identifier: Apache-2.0
//
// The live driver beside a bare loop in one run: a thread that selects, receives, queues and sleeps, and a
// second one that pops and sleeps. Both get 1360-byte datagrams from a paced sender on the same machine.
//
//   live_bench [PART...]      parts: loss rate latency cpu table; all by default
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/select.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <thread>
#include <vector>

#include "decoder/decoder_factory.h"
#include "input/input_sock.h"
#include "online/online_manager.h"
#include "support/console_capture.h"
#include "support/player.h"

namespace {
std::atomic<unsigned long> allocations{0};
}  // namespace

void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using namespace orva::test;
using namespace tevoro::lidar;
using Clock = std::chrono::steady_clock;
using Cloud = PointCloud<Point>;
using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr int kRepeats = 5;
constexpr unsigned kSensorRate = 15'400;  // the fastest sensor at 20 Hz, packets a second
constexpr unsigned kOrdinaryRate = 8'000;

/// Where the packets of a run arrive. Each carries its number, modulo 2^16, in the status word.
class Sink {
 public:
  void Sent(unsigned number) { sent_[number % kNumbers] = Clock::now(); }
  void Arrived(unsigned number) {
    const auto latency = Clock::now() - sent_[number % kNumbers];
    if (latencies_.size() < latencies_.capacity()) latencies_.push_back(latency);
    ++count_;
  }
  void Reset() {
    count_ = 0;
    latencies_.clear();
  }
  unsigned Count() const { return count_; }
  /// In microseconds.
  double Latency(double quantile) {
    if (latencies_.empty()) return 0.0;
    const auto nth =
        latencies_.begin() + static_cast<ptrdiff_t>(quantile * static_cast<double>(latencies_.size() - 1));
    std::nth_element(latencies_.begin(), nth, latencies_.end());
    return std::chrono::duration<double, std::micro>(*nth).count();
  }
  Sink() { latencies_.reserve(1'000'000); }

 private:
  static constexpr unsigned kNumbers = 65'536;
  std::vector<Clock::time_point> sent_ = std::vector<Clock::time_point>(kNumbers);
  std::vector<nanoseconds> latencies_;
  std::atomic<unsigned> count_{0};
};

class Receiver {
 public:
  virtual ~Receiver() = default;
};

/// The least that a receiving and a working thread can do.
class BareLoop : public Receiver {
 public:
  BareLoop(uint16_t port, Sink& sink) : input_(Param(port)), sink_(sink) {
    input_.Init();
    receiving_ = std::thread([this] { Receive(); });
    working_ = std::thread([this] { Work(); });
  }
  ~BareLoop() override {
    running_ = false;
    receiving_.join();
    working_.join();
    input_.Close();
  }

 private:
  using Bytes = std::vector<uint8_t>;

  static InputParam Param(uint16_t port) {
    InputParam param;
    param.host_ip = "127.0.0.1";
    param.msop_port = port;
    return param;
  }
  static void Sleep() {
    const timespec pause{0, 1000};
    nanosleep(&pause, nullptr);
  }
  void Receive() {
    while (running_) {
      fd_set set;
      FD_ZERO(&set);
      FD_SET(input_.Descriptor(), &set);
      timeval timeout{0, 100'000};
      if (select(input_.Descriptor() + 1, &set, nullptr, nullptr, &timeout) > 0) {
        Bytes bytes = Take(free_);
        bytes.resize(1546);
        const ssize_t count = recvfrom(input_.Descriptor(), bytes.data(), bytes.size(), 0, nullptr, nullptr);
        if (count > 0) Give(packets_, std::move(bytes));
      }
      Sleep();
    }
  }
  void Work() {
    while (running_) {
      Bytes bytes = Take(packets_);
      if (!bytes.empty()) {
        sink_.Arrived(bytes[1315] + 256U * bytes[1316]);
        Give(free_, std::move(bytes));
      }
      Sleep();
    }
  }
  Bytes Take(std::deque<Bytes>& queue) {
    const std::lock_guard lock(mutex_);
    if (queue.empty()) return {};
    Bytes bytes = std::move(queue.front());
    queue.pop_front();
    return bytes;
  }
  void Give(std::deque<Bytes>& queue, Bytes bytes) {
    const std::lock_guard lock(mutex_);
    queue.push_back(std::move(bytes));
  }

  InputSock input_;
  Sink& sink_;
  std::mutex mutex_;
  std::deque<Bytes> packets_, free_;
  std::atomic<bool> running_{true};
  std::thread receiving_, working_;
};

/// The driver: every packet is a frame of 32 points.
class Driver : public Receiver {
 public:
  Driver(uint16_t port, Sink& sink) {
    cloud_->points.reserve(1000);
    manager_.RegisterPointCloudCallBack(
        [&sink](std::shared_ptr<Cloud> cloud) {
          sink.Arrived(cloud->status_word);
          cloud->points.clear();
        },
        [this] { return cloud_; });
    manager_.Init(LiveParam(TS4B, port));
    manager_.Start();
  }

 private:
  std::shared_ptr<Cloud> cloud_ = std::make_shared<Cloud>();
  OnlineManager<Cloud> manager_;
};

double CpuSeconds(int who) {
  rusage usage{};
  getrusage(who, &usage);
  const auto sum = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
  };
  return sum(usage.ru_utime) + sum(usage.ru_stime);
}

struct Run {
  unsigned sent = 0;
  unsigned lost = 0;
  double cpu = 0.0;  ///< of a core, without the sender
  double allocations_per_packet = 0.0;
};

/// Sends at an even rate. A packet whose time has passed goes out at once.
Run Send(uint16_t port, Sink& sink, unsigned rate, double duration) {
  prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0);
  const UdpPeer sensor;
  Random random(1);
  Packet packet = PlausiblePacket(random, TS4B).FrameEnd(31);
  Run run;
  sink.Reset();
  const double process = CpuSeconds(RUSAGE_SELF), sender = CpuSeconds(RUSAGE_THREAD);
  const unsigned long allocated = allocations;
  const auto begin = Clock::now();
  const auto total = static_cast<unsigned>(rate * duration);
  for (; run.sent < total; ++run.sent) {
    const auto due = begin + nanoseconds(uint64_t{1'000'000'000} * run.sent / rate);
    if (due - Clock::now() > microseconds(2)) std::this_thread::sleep_until(due);
    packet.Tail(run.sent % 65'536, 0, 0, 0);
    sink.Sent(run.sent);
    sensor.Send(port, packet.data(), packet.size());
  }
  const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
  prctl(PR_SET_TIMERSLACK, 0UL, 0, 0, 0);  // the next receiver's threads inherit it
  run.cpu = (CpuSeconds(RUSAGE_SELF) - process - (CpuSeconds(RUSAGE_THREAD) - sender)) / elapsed;
  run.allocations_per_packet = static_cast<double>(allocations - allocated) / run.sent;
  const auto patience = Clock::now() + seconds(2);
  while (sink.Count() < run.sent && Clock::now() < patience) std::this_thread::sleep_for(microseconds(500));
  run.lost = run.sent - std::min(run.sent, sink.Count());
  return run;
}

using Make = std::function<std::unique_ptr<Receiver>(uint16_t, Sink&)>;
const Make kMakers[] = {
    [](uint16_t port, Sink& sink) { return std::make_unique<BareLoop>(port, sink); },
    [](uint16_t port, Sink& sink) { return std::make_unique<Driver>(port, sink); },
};
constexpr const char* kNames[] = {"bare loop", "driver"};

/// A fresh receiver for each run, so that none inherits a backlog. Warmed up with a burst that fills most of
/// the kernel's buffer: the buffers of a usual backlog are then made.
Run Measure(const Make& make, Sink& sink, unsigned rate, double duration) {
  const ConsoleCapture quiet;
  const uint16_t port = FreePort();
  const auto receiver = make(port, sink);
  Send(port, sink, 10'000'000, 15e-6);
  Send(port, sink, 4'000, 0.3);
  return Send(port, sink, rate, duration);
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

/// The highest rate at which nothing is lost in a second, to 4 %.
double HighestRate(const Make& make, Sink& sink) {
  double good = 2'000, bad = 100'000;
  while (bad > 1.04 * good) {
    const double rate = std::sqrt(good * bad);
    const bool lossless = Measure(make, sink, static_cast<unsigned>(rate), 1.0).lost == 0;
    (lossless ? good : bad) = rate;
  }
  return good;
}

void RatePart(Sink& sink) {
  std::vector<double> ratios;
  for (int i = 0; i < kRepeats; ++i) {
    const double bare = HighestRate(kMakers[0], sink), driver = HighestRate(kMakers[1], sink);
    ratios.push_back(driver / bare);
    std::printf("highest rate without loss: bare loop %6.0f, driver %6.0f packets/s, ratio %.2f\n", bare,
                driver, ratios.back());
  }
  std::printf("  median ratio %.2f (at least 0.8)\n", Median(ratios));
}

void LossPart(Sink& sink) {
  for (int i = 0; i < kRepeats; ++i) {
    const Run run = Measure(kMakers[1], sink, kSensorRate, 10.0);
    std::printf("10 s at %u packets/s: driver lost %u of %u\n", kSensorRate, run.lost, run.sent);
  }
}

void LatencyPart(Sink& sink) {
  std::vector<double> ratios[2];
  for (int i = 0; i < kRepeats; ++i) {
    double latency[2][2];
    for (size_t k = 0; k < 2; ++k) {
      Measure(kMakers[k], sink, kOrdinaryRate, 3.0);
      latency[k][0] = sink.Latency(0.5);
      latency[k][1] = sink.Latency(0.99);
      std::printf("latency at %u packets/s, %-9s p50 %6.1f us, p99 %6.1f us\n", kOrdinaryRate, kNames[k],
                  latency[k][0], latency[k][1]);
    }
    for (size_t q = 0; q < 2; ++q) ratios[q].push_back(latency[1][q] / latency[0][q]);
  }
  std::printf("  median ratios: p50 %.2f (at most 1.2), p99 %.2f\n", Median(ratios[0]), Median(ratios[1]));
}

/// What decoding a packet takes, by itself.
double DecodeSeconds() {
  const ConsoleCapture quiet;
  const auto decoder = DecoderFactory<Cloud>::CreateDecoder(TS4B, OpenLimits());
  Random random(1);
  const Packet packet = PlausiblePacket(random, TS4B);
  decoder->point_cloud_ = std::make_shared<Cloud>();
  decoder->RegisterCallBack([](const Error&) {}, [](const uint16_t&, const double&) {});
  constexpr int kPackets = 20'000;
  const double begin = CpuSeconds(RUSAGE_THREAD);
  for (int i = 0; i < kPackets; ++i) {
    decoder->point_cloud_->points.clear();
    decoder->ProcessMsopPacket(packet.data(), packet.size(), 0);
  }
  return (CpuSeconds(RUSAGE_THREAD) - begin) / kPackets;
}

void CpuPart(Sink& sink) {
  {
    const auto driver = kMakers[1](FreePort(), sink);
    std::this_thread::sleep_for(seconds(2));
    const double begin = CpuSeconds(RUSAGE_SELF);
    std::this_thread::sleep_for(seconds(5));
    const double idle = (CpuSeconds(RUSAGE_SELF) - begin) / 5;
    std::printf("CPU idle: driver %.1f %% of a core (at most 6)\n", idle * 100);
  }
  const double decoding = DecodeSeconds() * kOrdinaryRate;
  std::vector<double> ratios;
  for (int i = 0; i < kRepeats; ++i) {
    const Run bare = Measure(kMakers[0], sink, kOrdinaryRate, 3.0);
    const Run driver = Measure(kMakers[1], sink, kOrdinaryRate, 3.0);
    ratios.push_back(driver.cpu / (bare.cpu + decoding));
    std::printf(
        "CPU at %u packets/s: bare loop %.1f %%, decoding alone %.1f %%, driver %.1f %%; %.4f allocations a "
        "packet\n",
        kOrdinaryRate, bare.cpu * 100, decoding * 100, driver.cpu * 100, driver.allocations_per_packet);
  }
  std::printf("  median of driver / (bare loop + decoding) %.2f (at most 1.2)\n", Median(ratios));
}

/// Medians at the rates of a slow, a usual and the fastest sensor, and of two of the fastest.
void TablePart(Sink& sink) {
  std::printf("packets/s  receiver   p50 us  p99 us  CPU %%   lost\n");
  for (const unsigned rate : {1'000U, 7'700U, 15'400U, 30'800U}) {
    std::vector<double> p50[2], p99[2], cpu[2];
    unsigned lost[2] = {};
    for (int i = 0; i < kRepeats; ++i) {
      for (size_t k = 0; k < 2; ++k) {
        const Run run = Measure(kMakers[k], sink, rate, 2.0);
        p50[k].push_back(sink.Latency(0.5));
        p99[k].push_back(sink.Latency(0.99));
        cpu[k].push_back(run.cpu * 100);
        lost[k] += run.lost;
      }
    }
    for (size_t k = 0; k < 2; ++k) {
      std::printf("%9u  %-9s %7.1f %7.1f  %5.1f  %5u\n", rate, kNames[k], Median(p50[k]), Median(p99[k]),
                  Median(cpu[k]), lost[k]);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  struct Part {
    const char* name;
    void (*run)(Sink&);
  } parts[] = {{"loss", LossPart},
               {"rate", RatePart},
               {"latency", LatencyPart},
               {"cpu", CpuPart},
               {"table", TablePart}};
  Sink sink;
  for (const Part& part : parts) {
    const auto wanted = [&](const char* argument) { return std::string_view(argument) == part.name; };
    if (argc == 1 || std::any_of(argv + 1, argv + argc, wanted)) part.run(sink);
    std::fflush(stdout);
  }
}
