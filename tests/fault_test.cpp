// SPDX-License-Identifier: Apache-2.0
//
// What the driver does when the system fails it: no memory, calls that fail, a clock that jumps.
#include <sys/resource.h>

#include <cstring>

#include "sim/calibration_server.h"
#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/faults.h"
#include "support/player.h"
#include "support/recording.h"

namespace orva::test {
namespace {

using Cloud = PointCloud<Point>;

/// One way to use the driver, with everything at its other end.
class FaultTest : public testing::TestWithParam<const char*> {
 protected:
  FaultTest() {
    Random random(1);
    if (Is("replay")) {
      param_ = ReplayParam(TS4B, folder_.Path("sweeps.pcap"));
      WriteRecording(param_.input_param.pcap_path, FiveSweeps(random, TS4B));
      folder_.Write("calibration/weight.csv", "w,1,2,3,4");
      param_.calibration_param.calib_folder = folder_.Path();
    } else {
      param_ = LiveParam(TS6);
      param_.calib_from_lidar = Is("download");
      param_.calibration_param = CommandParam(server_.Port());
    }
    Work(warm_);  // what is allocated once in a process
    warm_.driver.Stop();
  }
  ~FaultTest() override { FailCalls("", 0); }
  bool Is(const std::string& name) const { return GetParam() == name; }

  /// Takes the driver through its day; returns with nothing under way.
  void Work(Player<Cloud>& player) {
    ASSERT_TRUE(player.Run(param_));
    WorkOn(player);
  }
  void WorkOn(Player<Cloud>& player) {
    if (Is("replay")) {
      int frames = player.WaitIndexed();
      for (int frame = 0; frame < std::min(frames, 3); ++frame) ASSERT_TRUE(player.Ask(frame));
      if (frames > 0) ASSERT_TRUE(player.Ask(0)) << "the play before has ended";
      player.driver.GetLocalFileStatus(frames);
      return;
    }
    const auto taken = [&player] {
      const DriverStatistics s = player.Statistics();
      return s.decoded + s.discarded;
    };
    const uint64_t before = taken();
    DataPort data(param_.input_param.msop_port);
    for (uint32_t i = 0; i < 6; ++i) {
      Packet packet(TS6);
      if (i % 2 == 0) packet.FrameEnd(5);
      data.Send(packet.Stamp(i + 1));
    }
    ASSERT_TRUE(Eventually([&] { return taken() == before + 6 && player.Statistics().queued == 0; }));
    if (!Is("download")) return;
    ASSERT_TRUE(Eventually([&] { return player.Statistics().calibration != CALIBRATION_DOWNLOADING; }));
  }
  /// Recovers: after what failed, the next frame but one at the latest comes whole.
  void ExpectGoesOn(Player<Cloud>& player) {
    const size_t before = player.Count();
    WorkOn(player);
    EXPECT_GT(player.Count(), before);
  }

  const ConsoleCapture quiet_;
  const TempFolder folder_;
  const std::string stream_ = SectionStream(CheckParam(), "CD");
  const sim::CalibrationServer server_{{stream_.begin(), stream_.end()}, kLoopback, 0};
  DriverParam param_;
  Player<Cloud> warm_;
};
INSTANTIATE_TEST_SUITE_P(, FaultTest, testing::Values("replay", "live", "download"),
                         [](const auto& way) { return std::string(way.param); });

/// The k-th allocation of the application's calls fails, for every k until none does.
TEST_P(FaultTest, CallsRunOutOfMemory) {
  bool failed = true;
  for (unsigned long k = 1; failed; ++k) {
    SCOPED_TRACE(k);
    const long live = LiveAllocations();
    {
      OrvaDriver<Cloud> driver;
      driver.RegisterPointCloudCallBack(nullptr, [] { return std::make_shared<Cloud>(); });
      bool ready = false;
      FailAllocation(On::kThisThread, k);
      try {
        ready = driver.InitDriver(param_) && (k % 8 != 0 || driver.Start());
      } catch (const std::bad_alloc&) {
      }
      failed = AllocationFailed();
      FailAllocation(On::kThisThread, 0);
      EXPECT_TRUE(failed || ready);
      if (!ready) ASSERT_TRUE(driver.InitDriver(param_) && (k % 8 != 0 || driver.Start())) << "is usable";
    }
    if (k % 8 != 0) EXPECT_EQ(LiveAllocations(), live) << "leaks";
  }
}

/// The k-th allocation on the driver's own threads fails: it is counted, and the threads go on.
TEST_P(FaultTest, ThreadsRunOutOfMemory) {
  bool failed = true;
  for (unsigned long k = 1; failed; ++k) {
    SCOPED_TRACE(k);
    Player<Cloud> player;
    ASSERT_TRUE(player.driver.InitDriver(param_));
    FailAllocation(On::kDriverThreads, k);
    ASSERT_TRUE(player.driver.Start());
    ASSERT_NO_FATAL_FAILURE(WorkOn(player));
    failed = AllocationFailed();
    FailAllocation(On::kDriverThreads, 0);
    EXPECT_TRUE(Eventually([&] { return player.Statistics().out_of_memory == (failed ? 1U : 0U); }));
    ASSERT_NO_FATAL_FAILURE(ExpectGoesOn(player));
    player.driver.Stop();
    const DriverStatistics s = player.Statistics();
    EXPECT_EQ(s.decoded + s.refused_length + s.refused_identifier + s.not_for_us + s.discarded + s.queued,
              s.received);
  }
}

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

struct CallFault {
  const char* call;
  std::vector<int> errors;
  const char* where;  ///< the ways to use the driver that make it
  const char* said;   ///< one line at set-up; "": set-up says nothing
};
const std::vector<int> kSocketErrors = {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPERM};
const CallFault kSetUpFaults[] = {
    {"socket", kSocketErrors, "live download", "socket creation failed: "},
    {"setsockopt", {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}, "live download", "setsockopt failed: "},
    {"bind", {EACCES, EADDRINUSE, EADDRNOTAVAIL, EBADF, EINVAL, ENOTSOCK}, "live download", "bind failed: "},
    {"fcntl", {EACCES, EAGAIN, EBADF, EINVAL, EPERM}, "live download", "fcntl failed: "},
    {"pthread_create", {EAGAIN, EINVAL, EPERM}, "replay live download", ""},
    {"fopen", {EACCES, EIO, EMFILE, ENFILE, ENOENT, ENOMEM, EINTR}, "replay", ""},
    {"fread", {EIO, EINTR, EISDIR}, "replay", ""},
};

TEST_P(FaultTest, SetUpSaysWhichCallFailed) {
  for (const CallFault& fault : kSetUpFaults) {
    if (std::strstr(fault.where, GetParam()) == nullptr) continue;
    for (const int error : fault.errors) {
      SCOPED_TRACE(testing::Message() << fault.call << ": " << std::strerror(error));
      const size_t descriptors = CountEntries("/proc/self/fd");
      Player<Cloud> player;
      {
        const ConsoleCapture errors(STDERR_FILENO);
        FailCalls(fault.call, error);
        EXPECT_FALSE(player.Run(param_));
        EXPECT_GT(FailedCalls(), 0U);
        FailCalls("", 0);
        const std::string line =
            *fault.said != '\0' ? fault.said + std::string(std::strerror(error)) + "\n" : "";
        EXPECT_EQ(errors.Text(), line);
      }
      if (std::string(fault.call) != "pthread_create") EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
      if (error == fault.errors[0]) Work(player);
    }
  }
}

const CallFault kRunFaults[] = {
    {"select", {EBADF, EINTR, EINVAL, ENOMEM}, "live download", ""},
    {"recvfrom", {EAGAIN, EBADF, ECONNREFUSED, EFAULT, EINTR, EINVAL, ENOMEM, ENOTSOCK}, "live download", ""},
    {"sendto",
     {EACCES, EAGAIN, EBADF, ECONNRESET, EINTR, EINVAL, EMSGSIZE, ENETDOWN, ENETUNREACH, ENOBUFS, ENOMEM,
      EPIPE},
     "download",
     ""},
    {"getsockopt", {EBADF, ENOPROTOOPT}, "live", ""},
    {"fread", {EIO, EINTR}, "replay", ""},
    {"fseeko", {EBADF, EINVAL, EOVERFLOW, ESPIPE}, "replay", ""},
};

/// While a call fails nothing spins, and nothing is lost for good.
TEST_P(FaultTest, RunsOnWhenACallFailsForAWhile) {
  for (const CallFault& fault : kRunFaults) {
    if (std::strstr(fault.where, GetParam()) == nullptr) continue;
    for (const int error : fault.errors) {
      SCOPED_TRACE(testing::Message() << fault.call << ": " << std::strerror(error));
      Player<Cloud> player;
      ASSERT_TRUE(player.driver.InitDriver(param_));
      FailCalls(fault.call, error);
      ASSERT_TRUE(player.driver.Start());
      if (Is("replay")) {
        const int frames = player.WaitIndexed();
        if (frames > 0) EXPECT_TRUE(player.Ask(0));
      } else {
        constexpr std::chrono::milliseconds kWhile{150};
        const double before = CpuSeconds();
        UdpPeer().Send(param_.input_param.msop_port, "x", 1);
        std::this_thread::sleep_for(kWhile);
        player.Statistics();
        EXPECT_LT(CpuSeconds() - before, 0.9 * std::chrono::duration<double>(kWhile).count());
      }
      EXPECT_TRUE(Eventually([] { return FailedCalls() > 0; }));
      FailCalls("", 0);
      player.driver.Stop();  // also from the midst of it
      ASSERT_TRUE(Is("replay") ? player.Run(param_) : player.driver.Start());
      ASSERT_NO_FATAL_FAILURE(ExpectGoesOn(player));
    }
  }
}

/// The wall clock jumps: reports of bad packets go on, and nothing waits for it.
TEST_P(FaultTest, OutlivesJumpsOfTheClock) {
  if (Is("replay")) GTEST_SKIP() << "the same decoder";
  Player<Cloud> player;
  std::atomic<int> reports{0};
  player.driver.RegisterExceptionCallBack([&](const Error&) { ++reports; });
  constexpr long kHour = 3600, kTo2038 = (2038L - 2026) * 366 * 24 * kHour, kTo2106 = 80L * 366 * 24 * kHour;
  ASSERT_TRUE(player.Run(param_));
  for (const long shift : {kHour, -kHour, kHour, kTo2038, 0L, kTo2106, -kTo2038}) {
    SCOPED_TRACE(shift);
    ShiftClock(shift);
    const int before = reports;
    UdpPeer().Send(param_.input_param.msop_port, "bad", 3);
    EXPECT_TRUE(Eventually([&] { return reports > before; }));
    ASSERT_NO_FATAL_FAILURE(ExpectGoesOn(player));
  }
  player.driver.Stop();
  ShiftClock(0);
}

}  // namespace
}  // namespace orva::test
