// SPDX-License-Identifier: Apache-2.0
//
// What the driver does when the system fails it: no memory, calls that fail, a clock that jumps.
#include <cstring>
#include <new>

#include "captures/packet_batch.h"
#include "sim/calibration_server.h"
#include "support/calibrations.h"
#include "support/console_capture.h"
#include "support/faults.h"
#include "support/player.h"
#include "support/recording.h"
#include "support/same.h"

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
  /// Makes a call of the application's fail to get its k-th block of memory; `failed_`: it came to that.
  template <typename Call>
  void Starve(unsigned long k, const Call& call) {
    bool done = false;
    FailAllocation(On::kThisThread, k);
    try {
      done = call();
    } catch (const std::bad_alloc&) {
    }
    failed_ = AllocationFailed();
    FailAllocation(On::kThisThread, 0);
    EXPECT_TRUE(failed_ || done);
  }
  /// Recovers: after what failed, the next frame but one at the latest comes whole.
  void ExpectGoesOn(Player<Cloud>& player) {
    const size_t before = player.Count();
    WorkOn(player);
    EXPECT_GT(player.Count(), before);
  }
  /// The sensor's whole calibration is in use.
  void ExpectCalibrated(Player<Cloud>& player) {
    EXPECT_EQ(player.Statistics().calibration, CALIBRATION_FROM_SENSOR);
    EXPECT_EQ(player.Statistics().calibration_sections, 4);
    Random random(7);
    const std::vector<Packet> frame = Frame(random, TS6, 2, 5);
    const size_t before = player.Count();
    DataPort data(param_.input_param.msop_port);
    for (int i = 0; i < 2; ++i) data.Send(frame);  // the first ends what went before
    const auto cloud = player.Wait(before + 2);
    ASSERT_NE(cloud, nullptr);
    ExpectSamePoints(cloud->points, ExpectedFrames<Cloud>(TS6, frame, calibration_.get())[0]->points);
  }

  const ConsoleCapture quiet_;
  const TempFolder folder_;
  Random random_{3};
  const std::unique_ptr<CheckParam> calibration_ = PlausibleCalibration(random_);
  const std::string stream_ = SectionStream(*calibration_, "CD"), whole_ = SectionStream(*calibration_);
  const sim::CalibrationServer server_{{stream_.begin(), stream_.end()}, kLoopback, 0};
  const sim::CalibrationServer whole_server_{{whole_.begin(), whole_.end()}, kLoopback, 0};
  bool failed_ = true;
  DriverParam param_;
  Player<Cloud> warm_;
};
INSTANTIATE_TEST_SUITE_P(, FaultTest, testing::Values("replay", "live", "download"),
                         [](const auto& way) { return std::string(way.param); });

/// The k-th allocation of the application's call fails, for every k until none does.
TEST_P(FaultTest, InitDriverRunsOutOfMemory) {
  for (unsigned long k = 1; failed_; ++k) {
    SCOPED_TRACE(k);
    const long live = LiveAllocations();
    {
      OrvaDriver<Cloud> driver;
      driver.RegisterPointCloudCallBack(nullptr, [] { return std::make_shared<Cloud>(); });
      Starve(k, [&] { return driver.InitDriver(param_); });
      ASSERT_TRUE(driver.InitDriver(param_));
    }
    EXPECT_EQ(LiveAllocations(), live) << "leaks";
    Player<Cloud> player;
    Starve(k, [&] { return player.driver.InitDriver(param_); });
    ASSERT_TRUE(player.Run(param_));
    ASSERT_NO_FATAL_FAILURE(ExpectGoesOn(player));
  }
}

TEST_P(FaultTest, StartRunsOutOfMemory) {
  const ConsoleCapture refused(STDERR_FILENO);  // the system may want memory for a thread
  for (unsigned long k = 1; failed_; ++k) {
    SCOPED_TRACE(k);
    Player<Cloud> player;
    ASSERT_TRUE(player.driver.InitDriver(param_));
    Starve(k, [&] { return player.driver.Start(); });
    ASSERT_TRUE(player.driver.Start());
    ASSERT_NO_FATAL_FAILURE(ExpectGoesOn(player));
  }
}

/// The k-th allocation on the driver's own threads fails: it is counted, and the threads go on.
TEST_P(FaultTest, ThreadsRunOutOfMemory) {
  constexpr unsigned long kWholeDownloads = 40;  // of 394 replies; then two sections in one
  unsigned long calibrated = 0;
  for (unsigned long k = 1; failed_; ++k) {
    SCOPED_TRACE(k);
    const bool whole = Is("download") && k <= kWholeDownloads;
    const size_t asked = whole_server_.Requests().size();
    DriverParam param = param_;
    if (whole) param.calibration_param = CommandParam(whole_server_.Port());
    Player<Cloud> player;
    ASSERT_TRUE(player.driver.InitDriver(param));
    FailAllocation(On::kDriverThreads, k);
    ASSERT_TRUE(player.driver.Start());
    ASSERT_NO_FATAL_FAILURE(WorkOn(player));
    failed_ = AllocationFailed();
    FailAllocation(On::kDriverThreads, 0);
    EXPECT_TRUE(Eventually([&] { return player.Statistics().out_of_memory == (failed_ ? 1U : 0U); }));
    ASSERT_NO_FATAL_FAILURE(ExpectGoesOn(player));
    // Where a busy machine is late with a reply, two come, and both count: sections then lack.
    if (whole && whole_server_.Requests().size() - asked <= 394 + 1) {
      ++calibrated;
      ASSERT_NO_FATAL_FAILURE(ExpectCalibrated(player));
    }
    player.driver.Stop();
    const DriverStatistics s = player.Statistics();
    EXPECT_EQ(s.decoded + s.refused_length + s.refused_identifier + s.not_for_us + s.discarded + s.queued,
              s.received);
  }
  if (Is("download")) EXPECT_GT(calibrated, kWholeDownloads / 2);
}

struct CallFault {
  const char* call;
  std::vector<int> errors;  ///< of its manual page
  const char* where;        ///< the ways to use the driver that make it
  const char* said;         ///< begins the one line that names it; "": nothing is said
};
const std::vector<int> kOpenErrors = {EACCES,       EAGAIN,     EBADF,     EBUSY,  EDQUOT, EEXIST, EFAULT,
                                      EFBIG,        EINTR,      EINVAL,    EIO,    EISDIR, ELOOP,  EMFILE,
                                      ENAMETOOLONG, ENFILE,     ENODEV,    ENOENT, ENOMEM, ENOSPC, ENOTDIR,
                                      ENXIO,        EOPNOTSUPP, EOVERFLOW, EPERM,  EROFS,  ETXTBSY};
const std::vector<int> kReadErrors = {EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO, EISDIR};
const CallFault kSetUpFaults[] = {
    {"socket",
     {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPERM, EPROTONOSUPPORT},
     "live download",
     "socket creation failed: "},
    {"setsockopt", {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}, "live download", "setsockopt failed: "},
    {"bind",
     {EACCES, EADDRINUSE, EADDRNOTAVAIL, EBADF, EFAULT, EINVAL, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR,
      ENOTSOCK, EROFS},
     "live download",
     "bind failed: "},
    {"fcntl",
     {EACCES, EAGAIN, EBADF, EBUSY, EDEADLK, EFAULT, EINTR, EINVAL, EMFILE, ENOLCK, ENOTDIR, EPERM},
     "live download",
     "fcntl failed: "},
    {"pthread_create", {EAGAIN, EINVAL, EPERM}, "replay live download", "thread creation failed: "},
    {"fopen", kOpenErrors, "replay", ""},
    {"fread", kReadErrors, "replay", ""},
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

const CallFault kFolderFaults[] = {
    {"opendir", {EACCES, EBADF, EMFILE, ENFILE, ENOENT, ENOMEM, ENOTDIR}, "", ""},
    {"readdir", {EBADF, EFAULT, EINVAL, ENOENT, ENOTDIR}, "", ""},
    {"open", kOpenErrors, "", ""},
};

TEST_P(FaultTest, AFolderThatCannotBeReadCostsTheCalibrationAlone) {
  if (!Is("replay")) GTEST_SKIP() << "the same reader";
  const TempFolder folder;
  WriteCalibration(folder, *calibration_);
  param_.calibration_param.calib_folder = folder.Path();
  const ConsoleCapture errors(STDERR_FILENO);
  Player<Cloud> player;
  for (const CallFault& fault : kFolderFaults) {
    for (const int error : fault.errors) {
      SCOPED_TRACE(testing::Message() << fault.call << ": " << std::strerror(error));
      FailCalls(fault.call, error);
      if (error == ENOMEM && fault.call == std::string("opendir")) {
        EXPECT_THROW(player.driver.InitDriver(param_), std::bad_alloc);
      } else {
        EXPECT_TRUE(player.driver.InitDriver(param_));
        EXPECT_EQ(player.Statistics().calibration, CALIBRATION_NONE);
      }
      EXPECT_GT(FailedCalls(), 0U);
    }
    FailCalls("", 0);
    ASSERT_TRUE(player.Run(param_));
    EXPECT_EQ(player.Statistics().calibration, CALIBRATION_FROM_FOLDER);
    ASSERT_NO_FATAL_FAILURE(ExpectGoesOn(player));
  }
  EXPECT_EQ(errors.Text(), "");
}

const CallFault kRunFaults[] = {
    {"select", {EBADF, EINTR, EINVAL, ENOMEM}, "live download", "select failed: "},
    {"recvfrom",
     {EAGAIN, EBADF, ECONNREFUSED, EFAULT, EINTR, EINVAL, ENOMEM, ENOTCONN, ENOTSOCK},
     "live download",
     ""},
    {"sendto",
     {EACCES,       EAGAIN, EALREADY, EBADF,    ECONNRESET, EDESTADDRREQ, EFAULT,
      EHOSTUNREACH, EINTR,  EINVAL,   EISCONN,  EMSGSIZE,   ENETDOWN,     ENETUNREACH,
      ENOBUFS,      ENOMEM, ENOTCONN, ENOTSOCK, EOPNOTSUPP, EPIPE},
     "download",
     "sendto failed: "},
    {"getsockopt", {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}, "live", ""},
    {"fread", kReadErrors, "replay", ""},
    {"fseeko", {EBADF, EINVAL, ENXIO, EOVERFLOW, ESPIPE}, "replay", ""},
};

/// Failed calls in a while of at least 150 ms, for each millisecond of it. A loop that pauses makes some 13,
/// one that spins hundreds, and above 100 beside ten that want the same core.
double FailedCallsPerMillisecond() {
  using Milliseconds = std::chrono::duration<double, std::milli>;
  const auto begin = std::chrono::steady_clock::now();
  const unsigned long before = FailedCalls();
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  const Milliseconds took = std::chrono::steady_clock::now() - begin;
  return static_cast<double>(FailedCalls() - before) / took.count();
}

/// While a call fails nothing spins, a line names it, and nothing is lost for good.
TEST_P(FaultTest, RunsOnWhenACallFailsForAWhile) {
  for (const CallFault& fault : kRunFaults) {
    if (std::strstr(fault.where, GetParam()) == nullptr) continue;
    for (const int error : fault.errors) {
      SCOPED_TRACE(testing::Message() << fault.call << ": " << std::strerror(error));
      std::string lines;
      if (*fault.said != '\0' && error != EINTR && error != EAGAIN) {
        lines = fault.said + std::string(std::strerror(error)) + "\n";
      }
      const bool waits = fault.call == std::string("select");
      if (waits && Is("download")) lines += lines;  // two sockets, a line for each
      const ConsoleCapture errors(STDERR_FILENO);
      Player<Cloud> player;
      ASSERT_TRUE(player.driver.InitDriver(param_));
      FailCalls(fault.call, error);
      ASSERT_TRUE(player.driver.Start());
      if (Is("replay")) {
        const int frames = player.WaitIndexed();
        if (frames > 0) EXPECT_TRUE(player.Ask(0));
      } else {
        UdpPeer().Send(param_.input_param.msop_port, "x", 1);
        player.Statistics();
        EXPECT_TRUE(Eventually([&] { return errors.Text().size() >= lines.size(); }));
        EXPECT_LT(FailedCallsPerMillisecond(), 50) << "spins";
      }
      EXPECT_TRUE(Eventually([] { return FailedCalls() > 0; }));
      EXPECT_EQ(errors.Text(), lines);
      FailCalls("", 0);
      player.driver.Stop();  // also from the midst of it
      ASSERT_TRUE(Is("replay") ? player.Run(param_) : player.driver.Start());
      ASSERT_NO_FATAL_FAILURE(ExpectGoesOn(player));
      if (!waits) continue;
      FailCalls(fault.call, error);
      EXPECT_TRUE(Eventually([&] { return FailedCalls() > 10 && errors.Text().size() >= 2 * lines.size(); }));
      FailCalls("", 0);
      EXPECT_EQ(errors.Text(), lines + lines) << "again after a success";
    }
  }
}

/// Seeks and reads that fail while a frame is played cost time, not the frame.
TEST_P(FaultTest, APlayOutlastsFailingReads) {
  if (!Is("replay")) GTEST_SKIP() << "nothing is played";
  Player<Cloud> calm, player;
  ASSERT_GT(calm.Open(param_), 1);
  ASSERT_GT(player.Open(param_), 1);
  const auto wanted = calm.Play(1);
  ASSERT_NE(wanted, nullptr);
  for (const CallFault& fault : kRunFaults) {
    if (std::strstr(fault.where, GetParam()) == nullptr) continue;
    for (const int error : fault.errors) {
      SCOPED_TRACE(testing::Message() << fault.call << ": " << std::strerror(error));
      ASSERT_NE(player.Play(0), nullptr);  // there the file stands now
      const uint64_t decoded = player.Statistics().decoded;
      FailCalls(fault.call, error);
      ASSERT_TRUE(player.Ask(1));
      EXPECT_TRUE(Eventually([&] { return FailedCalls() > 5 || player.Statistics().decoded != decoded; }));
      EXPECT_EQ(player.Statistics().decoded, decoded) << "what stands there";
      const size_t before = player.Count();
      FailCalls("", 0);
      const auto cloud = player.Wait(before + 1);
      ASSERT_NE(cloud, nullptr);
      ASSERT_NO_FATAL_FAILURE(ExpectSamePoints(cloud->points, wanted->points));
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

TEST(PacketBatch, IsAsBeforeWhereMemoryRunsOut) {
  PacketBatch batch;
  const uint8_t data[100]{};
  size_t bytes = 0, packets = 0, failures = 0;
  for (unsigned long i = 0; i < 300; ++i) {
    FailAllocation(On::kThisThread, 1 + i % 2);
    try {
      batch.Add(data, i % 100, 0);
      bytes += i % 100;
      ++packets;
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    FailAllocation(On::kThisThread, 0);
    ASSERT_EQ(batch.bytes.size(), bytes);
    ASSERT_EQ(batch.packets.size(), packets);
  }
  EXPECT_GT(failures, 5U);
}

}  // namespace
}  // namespace orva::test
