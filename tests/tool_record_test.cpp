// SPDX-License-Identifier: Apache-2.0
//
// `orva record` against a sender on loopback, and what the program writes about itself.
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <signal.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "sim/udp_endpoint.h"
#include "support/tool_process.h"

namespace {

namespace fs = std::filesystem;
using orva::sim::UdpEndpoint;
using orva::test::ToolProcess;
using Payloads = std::vector<std::vector<uint8_t>>;

class RecordTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = fs::temp_directory_path() / "orva_record_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    port_ = UdpEndpoint("127.0.0.1", 0).Port();  // free again, for the tool
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::vector<std::string> Arguments(const std::vector<std::string>& more) const {
    std::vector<std::string> arguments = {"record", folder_ / "a.pcap", "--port", std::to_string(port_)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  /// Sends 60 datagrams, few enough for any receive buffer, of lengths that no model has among others.
  Payloads Send() const {
    const UdpEndpoint sender("127.0.0.1", 0);
    Payloads sent;
    for (size_t i = 0; i < 60; ++i) {
      std::vector<uint8_t> payload(i % 3 == 0 ? 1360 : 1 + 25 * i);
      for (size_t k = 0; k < payload.size(); ++k) payload[k] = static_cast<uint8_t>(i + 7 * k);
      sender.Send(payload, orva::sim::MakeAddress("127.0.0.1", port_));
      sent.push_back(payload);
    }
    return sent;
  }

  /// Appends a capture's payloads; a file that ends inside a record is a fault.
  static void Read(const fs::path& path, Payloads& payloads) {
    char reason[PCAP_ERRBUF_SIZE];
    pcap_t* capture = pcap_open_offline(path.c_str(), reason);
    ASSERT_NE(capture, nullptr) << reason;
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    int result = 0;
    while ((result = pcap_next_ex(capture, &header, &data)) == 1) {
      EXPECT_LT(std::abs(header->ts.tv_sec - time(nullptr)), 600);
      payloads.emplace_back(data + 42, data + header->caplen);
    }
    EXPECT_EQ(result, PCAP_ERROR_BREAK) << pcap_geterr(capture);
    pcap_close(capture);
  }

  fs::path folder_;
  uint16_t port_ = 0;
};

TEST_F(RecordTest, KeepsEveryPayloadInOrderOverAllFiles) {
  ToolProcess tool(Arguments({"--rotate-size", "0.02", "--packets", "60"}));
  ASSERT_TRUE(tool.WaitForError("recording"));
  const Payloads sent = Send();
  EXPECT_EQ(tool.Wait(), 0) << tool.errors();
  Payloads recorded;
  for (int i = 0; recorded.size() < sent.size() && !HasFailure(); ++i) {
    const fs::path file = folder_ / ("a_000" + std::to_string(i) + ".pcap");
    Read(file, recorded);
    EXPECT_LE(fs::file_size(file), 20'000U);
  }
  EXPECT_EQ(recorded, sent);
}

TEST_F(RecordTest, AFullDiskKeepsTheWholeRecords) {
  ToolProcess tool(Arguments({"--model", "TS4B"}), {.largest_file = 20'000});
  ASSERT_TRUE(tool.WaitForError("recording"));
  Payloads sent = Send();
  EXPECT_EQ(tool.Wait(), 1);
  EXPECT_NE(tool.errors().find("whole and kept"), std::string::npos) << tool.errors();
  Payloads recorded;
  Read(folder_ / "a.pcap", recorded);
  ASSERT_GT(recorded.size(), 10U);
  sent.resize(recorded.size());
  EXPECT_EQ(recorded, sent);
}

TEST_F(RecordTest, CtrlCWithNothingArrivedSaysWhyAndLeavesNoFile) {
  ToolProcess tool(Arguments({}));
  ASSERT_TRUE(tool.WaitForError("recording"));
  tool.Signal(SIGINT);
  EXPECT_EQ(tool.Wait(), 1);
  EXPECT_NE(tool.errors().find("firewall"), std::string::npos) << tool.errors();
  EXPECT_TRUE(fs::is_empty(folder_));
}

TEST_F(RecordTest, CompletionAndManualPagesKnowEveryCommand) {
  const std::string tool = std::string(ORVA_TOOL) + " ";
  const std::string script = folder_ / "script";
  ASSERT_EQ(std::system((tool + "--completion bash > " + script).c_str()), 0);
  EXPECT_EQ(std::system(("bash -n " + script).c_str()), 0);
  std::ofstream(script, std::ios::app) << "COMP_WORDS=(orva record --rot) COMP_CWORD=2; _orva\n"
                                       << "[[ ${COMPREPLY[*]} == '--rotate-size --rotate-time' ]]\n";
  EXPECT_EQ(std::system(("bash " + script).c_str()), 0);
  ASSERT_EQ(std::system((tool + "--man " + folder_.string()).c_str()), 0);
  std::ifstream file(folder_ / "orva.1");
  const std::string page((std::istreambuf_iterator<char>(file)), {});
  for (const std::string command : {"simulate", "replay", "render", "live", "record"}) {
    EXPECT_NE(page.find("\\fB" + command + "\\fR"), std::string::npos) << command;
    EXPECT_TRUE(fs::exists(folder_ / ("orva-" + command + ".1")));
  }
}

}  // namespace
