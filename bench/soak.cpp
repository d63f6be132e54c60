// SPDX-License-Identifier: Apache-2.0
//
// A live TS4B at its highest rate and a replay in a loop, in one process, for a long time; a child process
// sends. Exit code 0 where everything stayed flat and nothing was lost, see docs/reliability.md.
//
//   soak MINUTES RECORDING CALIBRATION CSV PNG [LEAK]
//
// LEAK bytes are kept with each live frame, to see that the verdict notices.
#include <dirent.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "orva_driver.h"
#include "sim/sensor.h"
#include "sim/steady_time.h"
#include "sim/udp_endpoint.h"
#include "soak_report.h"

namespace {

using orva::sim::SteadyNow;
using orva::sim::TimedPacket;
using orva::soak::Sample;
using Cloud = PointCloud<Point>;

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kPacketsPerSecond = 15'400;
constexpr int64_t kTick = kSecond / 10;  ///< a frame is replayed each tick

/// Shared with the sending process.
struct Traffic {
  std::atomic<uint64_t> sent{0};
  std::atomic<bool> listening{false};
  std::atomic<bool> over{false};
};

[[noreturn]] void SendUntilOver(Traffic& traffic, uint16_t port) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::vector<TimedPacket> packets;
  orva::sim::Sensor sensor({.model = TS4B, .rate = 20.0, .frames = 1});
  for (TimedPacket packet; sensor.Next(packet);) packets.push_back(packet);
  const orva::sim::UdpEndpoint endpoint("127.0.0.1", 0);
  const sockaddr_in to = orva::sim::MakeAddress("127.0.0.1", port);
  orva::sim::SleepSharply();
  while (!traffic.listening) orva::sim::SleepUntil(SteadyNow() + kSecond / 1000);
  int64_t due = SteadyNow();
  for (size_t next = 0; !traffic.over; next = (next + 1) % packets.size()) {
    orva::sim::SleepUntil(due);
    // A sender that the machine held up does not make good for it in one burst: no sensor does.
    due = std::max(due + kSecond / kPacketsPerSecond, SteadyNow() - kSecond / 1000);
    if (endpoint.Send(packets[next].payload, to)) ++traffic.sent;
  }
  _exit(0);
}

DecoderParam OpenLimits() {
  DecoderParam limits;
  limits.max_distance = 1000.0F;
  limits.min_azimuth = -180.0F;
  limits.max_azimuth = 180.0F;
  limits.min_elevation = -90.0F;
  limits.max_elevation = 90.0F;
  return limits;
}

/// A driver whose clouds come back to it.
class Application {
 public:
  explicit Application(size_t leak) {
    driver_.RegisterPointCloudCallBack(
        [this, leak](const std::shared_ptr<Cloud>&) {
          ++frames_;
          if (leak > 0) kept_.emplace_back(leak, 'x');
        },
        [this] {
          cloud_->points.clear();
          return cloud_;
        });
  }
  bool Begin(const DriverParam& param) { return driver_.InitDriver(param) && driver_.Start(); }
  OrvaDriver<Cloud>& Driver() { return driver_; }
  uint64_t Frames() const { return frames_; }
  DriverStatistics Statistics() {
    DriverStatistics statistics;
    driver_.GetStatistics(statistics);
    return statistics;
  }

 private:
  std::shared_ptr<Cloud> cloud_ = std::make_shared<Cloud>();
  std::atomic<uint64_t> frames_{0};
  std::vector<std::string> kept_;
  OrvaDriver<Cloud> driver_;
};

uint64_t Sum(const DriverStatistics& s) {
  return s.decoded + s.refused_length + s.refused_identifier + s.not_for_us + s.discarded + s.queued;
}

/// Frame after frame; at the recording's end it is opened anew.
class Loop {
 public:
  explicit Loop(DriverParam param) : param_(std::move(param)) { Open(); }
  void Tick() {
    int frames = 0;
    if (total_ == 0) {
      if (app_.Driver().GetLocalFileStatus(frames)) total_ = frames;
    } else if (next_ < total_) {
      if (app_.Driver().SetLocalFrame(next_)) ++next_;
    } else {
      Close();
      Open();
    }
  }
  void Close() {
    app_.Driver().Stop();
    const DriverStatistics s = app_.Statistics();
    sound_ = sound_ && s.received == Sum(s) && s.decoded > 0 && s.refused_length + s.refused_identifier == 0;
  }
  bool Sound() const { return sound_; }
  uint64_t Frames() const { return app_.Frames(); }

 private:
  void Open() {
    sound_ = app_.Begin(param_) && sound_;
    total_ = next_ = 0;
  }
  const DriverParam param_;
  Application app_{0};
  int total_ = 0, next_ = 0;
  bool sound_ = true;
};

double Entries(const char* folder) {
  DIR* const listing = opendir(folder);
  if (listing == nullptr) return 0.0;
  double count = -3.0;  // ".", ".." and the listing's own
  while (readdir(listing) != nullptr) ++count;
  closedir(listing);
  return count;
}

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

double ResidentMiB() {
  uint64_t all = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return static_cast<double>(resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE))) / (1 << 20);
}

Sample Look(double seconds, const DriverStatistics& live, uint64_t replayed) {
  Sample sample{.seconds = seconds, .resident = ResidentMiB(), .descriptors = Entries("/proc/self/fd")};
  sample.threads = Entries("/proc/self/task") + 1.0;
  sample.received = live.received;
  sample.decoded = live.decoded;
  sample.refused = live.refused_length + live.refused_identifier + live.not_for_us;
  sample.discarded = live.discarded;
  sample.kernel_dropped = live.kernel_dropped;
  sample.frames = live.frames;
  sample.replayed = replayed;
  return sample;
}

bool Judge(const char* promise, bool kept) {
  std::printf("%-4s %s\n", kept ? "ok" : "NOT", promise);
  return kept;
}

}  // namespace

int main(int argc, char** argv) {
  const double minutes = argc > 5 ? std::atof(argv[1]) : 0.0;
  if (minutes <= 0.0) {
    std::fputs("usage: soak MINUTES RECORDING CALIBRATION CSV PNG [LEAK]\n", stderr);
    return 2;
  }
  SetOrvaConsole([](const char* line, bool is_error) {
    if (is_error) std::fprintf(stderr, "%s\n", line);
  });
  const uint16_t port = orva::sim::UdpEndpoint("127.0.0.1", 0).Port();
  void* const shared =
      mmap(nullptr, sizeof(Traffic), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return 2;
  Traffic& traffic = *new (shared) Traffic;

  DriverParam param;
  param.lidar_type = TS4B;
  param.decoder_param = OpenLimits();
  param.calibration_param.calib_folder = argv[3];
  DriverParam recorded = param;
  recorded.input_type = PCAP;
  recorded.input_param.pcap_path = argv[2];
  param.input_param.host_ip = "127.0.0.1";
  param.input_param.msop_port = port;

  // While this process has no threads yet.
  const pid_t sender = fork();
  if (sender < 0) return 2;
  if (sender == 0) SendUntilOver(traffic, port);
  Application live(argc > 6 ? static_cast<size_t>(std::atoll(argv[6])) : 0);
  if (!live.Begin(param)) return 2;
  Loop loop(recorded);

  orva::soak::CsvFile csv(argv[4]);
  std::vector<Sample> samples;
  samples.reserve(static_cast<size_t>(minutes * 60.0) + 2);
  const int64_t begin = SteadyNow();
  traffic.listening = true;
  double cpu = CpuSeconds();
  int64_t looked = begin;
  const auto ticks = static_cast<int64_t>(minutes * 600.0);
  for (int64_t tick = 1; tick <= ticks; ++tick) {
    orva::sim::SleepUntil(begin + tick * kTick);
    loop.Tick();
    if (tick % 10 != 0) continue;
    const int64_t now = SteadyNow();
    samples.push_back(Look(static_cast<double>(now - begin) * 1e-9, live.Statistics(), loop.Frames()));
    const double used = CpuSeconds();
    samples.back().cpu = (used - cpu) / (static_cast<double>(now - looked) * 1e-9);
    csv.Add(samples.back());
    cpu = used;
    looked = now;
  }
  traffic.over = true;
  waitpid(sender, nullptr, 0);
  orva::sim::SleepUntil(SteadyNow() + kSecond);  // the last packets
  live.Driver().Stop();
  loop.Close();
  const DriverStatistics s = live.Statistics();
  orva::soak::DrawPlot(samples, argv[5]);

  std::printf("%.0f s, %llu packets sent (%.0f/s), %llu live frames, %llu replayed\n", samples.back().seconds,
              static_cast<unsigned long long>(traffic.sent.load()),
              static_cast<double>(traffic.sent) / samples.back().seconds,
              static_cast<unsigned long long>(s.frames), static_cast<unsigned long long>(loop.Frames()));
  std::printf("kernel dropped %llu, discarded %llu, out of memory %llu\n",
              static_cast<unsigned long long>(s.kernel_dropped), static_cast<unsigned long long>(s.discarded),
              static_cast<unsigned long long>(s.out_of_memory));
  bool good = Judge("received = decoded + refused + discarded, and sent = received + dropped by the kernel",
                    s.received == Sum(s) && s.received + s.kernel_dropped == traffic.sent);
  // Some 25 ms without a processor fill the kernel's buffer, where nobody has made it larger.
  const char* const share = std::getenv("ORVA_SOAK_LOSS");
  const double allowed = share == nullptr ? 0.0 : std::atof(share) * static_cast<double>(traffic.sent);
  good &= Judge(share == nullptr ? "nothing lost" : "no more lost than ORVA_SOAK_LOSS allows",
                static_cast<double>(s.kernel_dropped + s.discarded) <= allowed && s.out_of_memory == 0);
  good &= Judge("every replay added up", loop.Sound() && loop.Frames() > 0);
  for (const orva::soak::Quantity& quantity : orva::soak::kQuantities) {
    const orva::soak::Trend trend = orva::soak::LastHalf(samples, quantity);
    std::printf("%-4s flat: %-12s mean %8.3f, growth over the last half %+.3f, noise %.3f\n",
                trend.flat ? "ok" : "NOT", quantity.name, trend.mean, trend.growth, trend.noise);
    good &= trend.flat;
  }
  return good ? 0 : 1;
}
