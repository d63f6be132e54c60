// SPDX-License-Identifier: Apache-2.0
//
// The pieces that carry datagrams: queue, data socket, command channel.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>

#include "common/failure_report.h"
#include "input/input_sock.h"
#include "input/udp_select.h"
#include "online/sync_queue.h"
#include "support/console_capture.h"
#include "support/player.h"

namespace orva::test {
namespace {

using tevoro::lidar::Buffer;
using tevoro::lidar::FailureReport;
using tevoro::lidar::InputSock;
using tevoro::lidar::PACKET_BUFFER_SIZE;
using tevoro::lidar::SyncQueue;
using tevoro::lidar::UDPSelect;

TEST(SyncQueue, KeepsOrderAndCountsWhileItGrowsAndWraps) {
  SyncQueue<std::shared_ptr<int>> queue;
  EXPECT_EQ(queue.Pop(), nullptr);
  int in = 0, out = 0;
  for (int round = 0; round < 40; ++round) {
    for (int i = 0; i < 7; ++i, ++in) {
      ASSERT_EQ(queue.Push(std::make_shared<int>(in)), static_cast<uint64_t>(in + 1 - out));
    }
    for (int i = 0; i < 5; ++i) ASSERT_EQ(*queue.Pop(), out++);
  }
  for (bool more = true; more;) {
    ASSERT_EQ(*queue.Pop(more), out++);
    ASSERT_EQ(more, out < in);
  }
  EXPECT_EQ(queue.Pop(), nullptr);
}

TEST(SyncQueue, ClearReleasesElementsOutsideTheLock) {
  SyncQueue<std::shared_ptr<int>> queue;
  int released = 0;
  for (int i = 0; i < 3; ++i) {
    queue.Push(std::shared_ptr<int>(new int(i), [&](int* p) {
      delete p;
      queue.Pop();  // waits for ever if the lock is held
      ++released;
    }));
  }
  queue.Clear();
  EXPECT_EQ(released, 3);
  EXPECT_EQ(queue.Push(nullptr), 1U);
}

InputParam DataParam(uint16_t port, const std::string& address = kLoopback) {
  InputParam param;
  param.host_ip = address;
  param.msop_port = port;
  return param;
}

TEST(InputSock, ReceivesCutsAndTimesOut) {
  const uint16_t port = FreePort();
  InputSock input(DataParam(port));
  ASSERT_TRUE(input.Init());
  const UdpPeer sensor;
  auto buffer = std::make_shared<Buffer>();
  buffer->offset = buffer->length = 77;
  const auto receive = [&](int size) { return input.RecvPacket(buffer, size, nullptr, true); };

  EXPECT_EQ(receive(1), 0);  // nothing comes, whatever the size
  sensor.Send(port, "");
  EXPECT_EQ(receive(1546), 0);
  EXPECT_EQ(buffer->length, 77U);

  sensor.Send(port, "seven b");
  sensor.Send(port, std::string(PACKET_BUFFER_SIZE + 1, 'x'));
  sensor.Send(port, "cut here");
  EXPECT_EQ(receive(1546), 7);
  EXPECT_EQ(buffer->offset, 0U);
  EXPECT_EQ(buffer->length, 7U);
  EXPECT_EQ(buffer->data[6], 'b');
  EXPECT_EQ(receive(1 << 20), int{PACKET_BUFFER_SIZE});  // never beyond the buffer
  EXPECT_EQ(receive(3), 3);

  const int descriptor = input.Descriptor();
  EXPECT_TRUE(fcntl(descriptor, F_GETFL) & O_NONBLOCK);
  EXPECT_TRUE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC) << "a child would keep the port";
  input.Close();
  input.Close();
  EXPECT_EQ(fcntl(descriptor, F_GETFL), -1);
}

TEST(InputSock, BindsAndFailsAsItSays) {
  for (const char* any : {"", "not an address", "300.1.1.1"}) {
    const uint16_t port = FreePort();
    InputSock input(DataParam(port, any));
    ASSERT_TRUE(input.Init()) << any;
    UdpPeer().Send(port, "x");
    EXPECT_TRUE(input.WaitReadEvent(60'000)) << any;
    EXPECT_TRUE(input.WaitWriteEvent(1000)) << any;
    input.Close();
  }

  const UdpPeer occupant;  // without address reuse
  InputSock input(DataParam(occupant.Port()));
  const ConsoleCapture errors(STDERR_FILENO);
  EXPECT_FALSE(input.Init());
  EXPECT_EQ(input.Descriptor(), -1);
  EXPECT_EQ(errors.Text().rfind("bind failed: ", 0), 0U) << errors.Text();
}

TEST(InputSock, WorksAboveSelectsDescriptorLimit) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, FD_SETSIZE + 100);
  if (limit.rlim_cur > limit.rlim_max || setrlimit(RLIMIT_NOFILE, &limit) != 0) GTEST_SKIP();
  std::vector<int> fillers;
  while (fillers.empty() || fillers.back() < FD_SETSIZE) fillers.push_back(dup(STDERR_FILENO));

  const uint16_t port = FreePort();
  InputSock input(DataParam(port));
  ASSERT_TRUE(input.Init());
  EXPECT_GE(input.Descriptor(), FD_SETSIZE);
  EXPECT_FALSE(input.WaitReadEvent(1));
  EXPECT_TRUE(input.WaitWriteEvent(1000));
  UdpPeer().Send(port, "x");
  EXPECT_TRUE(input.WaitReadEvent(60'000));
  input.Close();
  for (const int filler : fillers) close(filler);
}

TEST(FailureReport, NamesAFailureOnceUntilItHasPassedOrChanged) {
  const ConsoleCapture errors(STDERR_FILENO);
  FailureReport report("call failed");
  for (const int error : {EIO, EIO, ENOMEM, ENOMEM, 0, 0, ENOMEM, ENOMEM}) {
    error == 0 ? report.Succeeded() : report.Failed(error);
  }
  const std::string memory = "call failed: Cannot allocate memory\n";
  EXPECT_EQ(errors.Text(), "call failed: Input/output error\n" + memory + memory);
}

TEST(CommandChannel, NamesAFailureToSendOnceUntilItHasPassed) {
  const UdpPeer sensor;
  UDPSelect channel(CommandParam(sensor.Port()));
  ASSERT_TRUE(channel.Init());
  const ConsoleCapture errors(STDERR_FILENO);
  const std::string large(70'000, 'x');
  std::string said;
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(channel.SendData(large.data(), static_cast<int>(large.size())));
    EXPECT_EQ(errors.Text(), said += "sendto failed: Message too long\n");
    EXPECT_TRUE(channel.SendData("fits", 4));
  }
}

TEST(CommandChannel, LearnsFromTheFirstDatagramEachFieldOnItsOwn) {
  const ConsoleCapture errors(STDERR_FILENO);
  const UdpPeer first, second;
  const struct {
    const char* lidar_ip;
    uint16_t lidar_port;
    const UdpPeer& answered;
  } cases[] = {{"", 0, first}, {kLoopback, 0, first}, {"", second.Port(), second}};
  for (const auto& c : cases) {
    const uint16_t port = FreePort();
    CalibrationParam param = CommandParam(c.lidar_port, port);
    param.lidar_ip = c.lidar_ip;
    UDPSelect channel(param);
    ASSERT_TRUE(channel.Init());
    if (c.lidar_port == 0) EXPECT_FALSE(channel.SendData("?", 1));
    first.Send(port, "");
    first.Send(port, "first");
    second.Send(port, "second");
    char bytes[16];
    for (const int length : {-1, 5, 6, 0}) {  // an empty datagram teaches nothing
      EXPECT_EQ(channel.RecvData(bytes, int{sizeof(bytes)}), length);
    }
    ASSERT_TRUE(channel.SendData("hello", 5));
    EXPECT_EQ(c.answered.Receive(nullptr, 60'000), "hello");
  }
  EXPECT_EQ(errors.Text(), "") << "to send nowhere is no failure yet";
}

}  // namespace
}  // namespace orva::test
