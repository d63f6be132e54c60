// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <filesystem>

#include "input/input_factory.h"
#include "sim/capture_writer.h"
#include "support/capture_file.h"
#include "support/console_capture.h"
#include "support/temp_folder.h"

namespace orva::test {
namespace {

using tevoro::lidar::Buffer;

constexpr uint16_t kPort = 2368;

Bytes Payload(uint8_t number, size_t length = 100) {
  return Bytes(length, number);
}

class InputPcapTest : public testing::Test {
 protected:
  bool Open(const std::string& path, uint16_t port = kPort) {
    InputParam param;
    param.msop_port = port;
    param.pcap_path = path;
    const ConsoleCapture out;
    const ConsoleCapture error(STDERR_FILENO);
    input_ = tevoro::lidar::InputFactory::CreateInput(PCAP, param);
    const bool open = input_->Init();
    EXPECT_EQ(out.Text(), "pcap_file:" + path + "\n");
    error_text_ = error.Text();
    return open;
  }

  /// One call. What it left in the buffer is in `payload_`.
  int Receive(long* position = nullptr, bool record = false) {
    auto buffer = std::make_shared<Buffer>();
    buffer->length = 4711;
    const int result = input_->RecvPacket(buffer, 1546, position, record);
    if (result > 0) {
      EXPECT_EQ(buffer->offset, 0U);
      EXPECT_EQ(buffer->length, static_cast<uint64_t>(result));
      payload_.assign(buffer->data.get(), buffer->data.get() + result);
      received_ = buffer->received;
    } else {
      EXPECT_EQ(buffer->length, 4711U) << "untouched";
    }
    return result;
  }
  std::vector<int> ReceiveAll() {
    std::vector<int> results;
    do {
      results.push_back(Receive());
    } while (results.back() != -1 && results.size() < 1000);
    return results;
  }

  TempFolder folder_;
  const std::string path_ = folder_.Path("capture.pcap");
  std::shared_ptr<tevoro::lidar::Input> input_;
  Bytes payload_;
  double received_ = 0.0;
  std::string error_text_;
};

TEST_F(InputPcapTest, TakesTheDatagramsOfThePort) {
  {
    CaptureFile file(path_);
    file.Datagram(kPort, Payload(1, 1360)).Datagram(kPort + 1, Payload(2)).Datagram(kPort, Payload(3, 1));
    file.Record(EthernetFrame(Bytes(46, 0), 0x0806));              // ARP
    file.Record(EthernetFrame(Ipv4Udp(kPort, Payload(4), 0, 6)));  // TCP
    file.Datagram(kPort, {}).Datagram(kPort, Payload(5, 1546)).Datagram(kPort, Payload(6, 1547));
  }
  ASSERT_TRUE(Open(path_));
  EXPECT_EQ(ReceiveAll(), (std::vector<int>{1360, 0, 1, 0, 0, 0, 1546, 0, -1}))
      << "too large counts as rejected";
  EXPECT_EQ(payload_, Payload(5, 1546));
  EXPECT_EQ(Receive(), -1) << "the end stays";
  ASSERT_TRUE(Open(path_, 0));
  EXPECT_EQ(ReceiveAll(), (std::vector<int>{1360, 100, 1, 0, 0, 0, 1546, 0, -1}))
      << "port 0 takes every datagram";
}

/// Positions that were recorded on the way lead back to the same records, in any encoding of the file.
TEST_F(InputPcapTest, ReturnsToRecordedPositions) {
  for (const Encoding encoding :
       {Encoding::kMicroseconds, Encoding::kNanoseconds, Encoding::kOtherByteOrder, Encoding::kPcapng}) {
    SCOPED_TRACE(static_cast<int>(encoding));
    {
      CaptureFile file(path_, encoding);
      for (uint8_t i = 0; i < 20; ++i) file.Datagram(i % 3 == 2 ? 9 : kPort, Payload(i, 10U + 7U * i));
    }
    ASSERT_TRUE(Open(path_));
    std::vector<std::pair<long, Bytes>> records;
    long position = -1;
    int result = 0;
    while ((result = Receive(&position, true)) != -1) {
      if (result > 0) records.emplace_back(position, payload_);
    }
    EXPECT_EQ(position, static_cast<long>(std::filesystem::file_size(path_)));
    ASSERT_EQ(records.size(), 14U);
    for (const size_t i : {13U, 0U, 7U, 7U}) {
      long wanted = records[i].first;
      ASSERT_GT(Receive(&wanted, false), 0);
      EXPECT_EQ(payload_, records[i].second);
      EXPECT_EQ(wanted, records[i].first);
    }
    while ((result = Receive()) == 0) {
    }
    EXPECT_EQ(payload_, records[8].second) << "reading goes on behind the record";
  }
}

/// Recordings joined into one pcapng file: each section describes interfaces of its own.
TEST_F(InputPcapTest, ReturnsToOtherSections) {
  const auto section = [this](uint32_t interfaces, Encoding encoding) {
    {
      CaptureFile file(path_, encoding, interfaces);
      for (uint8_t i = 0; i < 4; ++i) file.Datagram(kPort, Payload(i));
    }
    return ReadBytes(path_);
  };
  const Bytes three = section(3, Encoding::kPcapng), one = section(1, Encoding::kPcapngSeconds);
  std::string joined(three.begin(), three.end());
  joined.append(one.begin(), one.end() - 60);  // cut off inside the last record
  ASSERT_TRUE(Open(folder_.Write("joined.pcapng", joined)));
  std::vector<long> positions(8);
  for (size_t i = 0; i < 8; ++i) EXPECT_EQ(Receive(&positions[i], true), i < 7 ? 100 : -1);
  for (const size_t i : {1U, 6U, 2U, 0U, 5U, 0U}) {
    SCOPED_TRACE(i);
    EXPECT_EQ(Receive(&positions[i], false), 100);
    EXPECT_EQ(payload_, Payload(static_cast<uint8_t>(i % 4)));
    EXPECT_NEAR(received_, i < 4 ? 1700 : 1700000000 + static_cast<double>(i % 4), 1e-5);
    for (size_t next = i + 1; next < 7; ++next) {
      EXPECT_EQ(Receive(), 100);
      EXPECT_EQ(payload_, Payload(static_cast<uint8_t>(next % 4)));
    }
    EXPECT_EQ(Receive(), -1);
  }
}

/// As the simulator writes them; libpcap's own filter looks at the headers too.
TEST_F(InputPcapTest, FindsThePayloadBehindEveryLinkHeader) {
  using sim::Framing;
  for (const Framing framing : {Framing::kEthernet, Framing::kLinuxCooked, Framing::kLinuxCookedV2,
                                Framing::kRawIp, Framing::kLoopback}) {
    for (const bool extended : {false, true}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(framing) << extended);
      sim::CaptureWriter file(
          path_,
          {.framing = framing, .nanoseconds = extended, .ip_options = extended, .destination_port = kPort});
      for (uint8_t i = 1; i <= 3; ++i) file.Write({Payload(i), 1'700'000'000'000'000'000 + i * 1'000'000});
      file.Finish();
      ASSERT_TRUE(Open(path_));
      for (uint8_t i = 1; i <= 3; ++i) {
        ASSERT_EQ(Receive(), 100);
        EXPECT_EQ(payload_, Payload(i));
        EXPECT_NEAR(received_, 1'700'000'000 + i * 0.001, 1e-6);
      }
    }
  }
  CaptureFile(path_).Datagram(kPort, Payload(4), 10);  // the longest options
  ASSERT_TRUE(Open(path_));
  EXPECT_EQ(Receive(), 100);
  EXPECT_EQ(payload_, Payload(4));
  CaptureFile(path_, Encoding::kMicroseconds, 1, DLT_IEEE802_11).Record(Bytes(60, 0));
  EXPECT_FALSE(Open(path_));
  EXPECT_NE(error_text_.find("Capture on Ethernet"), std::string::npos) << error_text_;
}

TEST_F(InputPcapTest, SkipsWhatIsNotWhole) {
  {
    CaptureFile file(path_);
    const Bytes frame = EthernetFrame(Ipv4Udp(kPort, Payload(9)));
    file.Record(frame, 1).Record(frame, 101).Datagram(kPort, Payload(7)).Record(Bytes(5, 1)).Record({});
    Bytes short_header = frame;
    short_header.resize(14 + 20 + 7);
    file.Record(short_header);
    Bytes long_options = frame;
    long_options[14] = 0x4F;  // claims 60 bytes of header: the ports are then payload bytes
    file.Record(long_options).Datagram(kPort, Payload(8));
  }
  ASSERT_TRUE(Open(path_));
  EXPECT_EQ(ReceiveAll(), (std::vector<int>{0, 0, 100, 0, 0, 0, 0, 100, -1}));
  EXPECT_EQ(payload_, Payload(8));

  std::filesystem::resize_file(path_, std::filesystem::file_size(path_) - 50);
  ASSERT_TRUE(Open(path_)) << "a file that ends inside a record plays up to there";
  EXPECT_EQ(ReceiveAll(), (std::vector<int>{0, 0, 100, 0, 0, 0, 0, -1}));
}

/// Positions beyond 32 bits. The hole in the file is jumped over, never read.
TEST_F(InputPcapTest, ReachesBeyondFourGigabytes) {
  CaptureFile(path_).Datagram(kPort, Payload(2)).Datagram(kPort, Payload(3));
  const Bytes bytes = ReadBytes(path_);
  CaptureFile(path_).Datagram(kPort, Payload(1));
  constexpr long kFar = 5'000'000'000;
  {
    std::fstream file(path_, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(kFar);
    file.write(reinterpret_cast<const char*>(bytes.data()) + 24,
               static_cast<std::streamsize>(bytes.size() - 24));
  }
  ASSERT_TRUE(Open(path_));
  long first = 24, position = kFar;
  EXPECT_EQ(Receive(&position, false), 100);
  EXPECT_EQ(payload_, Payload(2));
  EXPECT_EQ(Receive(&position, true), 100);
  EXPECT_EQ(position, kFar + 16 + 142);
  EXPECT_EQ(Receive(&first, false), 100);
  EXPECT_EQ(payload_, Payload(1));
  EXPECT_EQ(Receive(&position, false), 100);
  EXPECT_EQ(payload_, Payload(3));
}

}  // namespace
}  // namespace orva::test
