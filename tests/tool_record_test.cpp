// SPDX-License-Identifier: Apache-2.0
//
// `orva record` against a sender on loopback, and what the program writes about itself.
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "sim/calibration_server.h"
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

TEST_F(RecordTest, TellsTheServiceManagerThatItListensAndThatItStillWrites) {
  sockaddr_un address{AF_UNIX, {}};
  folder_.string().append("/notify").copy(address.sun_path, sizeof(address.sun_path) - 1);
  const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(manager, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  setenv("NOTIFY_SOCKET", address.sun_path, 1);
  ToolProcess tool(Arguments({}));
  unsetenv("NOTIFY_SOCKET");
  for (const std::string expected : {"READY=1", "WATCHDOG=1", "WATCHDOG=1"}) {
    char word[32] = {};
    ASSERT_GT(recv(manager, word, sizeof(word) - 1, 0), 0);
    EXPECT_EQ(word, expected);
  }
  close(manager);
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

TEST_F(RecordTest, StoresTheSensorsCalibrationWhereReplayFindsIt) {
  const auto& model = orva::sim::FindModel(TS4B);
  const orva::sim::Calibration calibration = orva::sim::MakeCalibration(model, 7);
  const std::string recording = folder_ / "a.pcap";
  {
    const orva::sim::CalibrationServer sensor(MakeCalibrationStream(calibration, model), "127.0.0.1", 0);
    const std::vector<std::string> more = {
        "--packets",     "60",        "--model",        "TS4B",
        "--sensor",      "127.0.0.1", "--command-port", std::to_string(sensor.Port()),
        "--rotate-size", "1"};
    ToolProcess tool(Arguments(more));
    ASSERT_TRUE(tool.WaitForError("recording")) << tool.errors();
    Send();
    EXPECT_EQ(tool.Wait(), 0) << tool.errors();
    ToolProcess again(Arguments(more));
    EXPECT_EQ(again.Wait(), 1);
    EXPECT_NE(again.errors().find("earlier recording"), std::string::npos) << again.errors();
  }
  const auto numbers = [this](const std::string& name) {
    std::ifstream file(folder_ / "a.calib" / name);
    std::vector<float> values;
    for (std::string field; std::getline(file, field, ',');) {
      std::istringstream lines(field);  // the last of a line and the first of the next
      for (std::string number; std::getline(lines, number);) {
        if (!number.empty() && number != "weight")
          values.push_back(static_cast<float>(std::strtod(number.c_str(), nullptr)));
      }
    }
    return values;
  };
  EXPECT_EQ(numbers("azimuth.csv"), calibration.azimuth);
  EXPECT_EQ(numbers("elevation.csv"), calibration.elevation);
  EXPECT_TRUE(std::ranges::equal(numbers("weight.csv"), calibration.weight));
  EXPECT_TRUE(std::ranges::equal(numbers("near_filter.csv"), calibration.near_filter));
  ToolProcess replay({"replay", folder_ / "a_0000.pcap", "--model", "TS4B"});
  replay.Wait();
  EXPECT_NE(replay.errors().find("a.calib, beside the recording"), std::string::npos) << replay.errors();
}

TEST_F(RecordTest, CompletionAndManualPagesKnowEveryCommand) {
  const std::string tool = std::string(ORVA_TOOL) + " ";
  const std::string script = folder_ / "script";
  ASSERT_EQ(std::system((tool + "--completion bash > " + script).c_str()), 0);
  EXPECT_EQ(std::system(("bash -n " + script).c_str()), 0);
  std::ofstream(script, std::ios::app) << "COMP_WORDS=(orva record --rot) COMP_CWORD=2; _orva\n"
                                       << "[[ ${COMPREPLY[*]} == '--rotate-size --rotate-time' ]]\n";
  EXPECT_EQ(std::system(("bash " + script).c_str()), 0);
  const std::pair<const char*, const char*> others[] = {
      {"zsh", "zsh -n FILE"},  // its completion needs a terminal
      {"fish",
       "test \"$(fish -c 'source FILE; complete -C \"orva live --model TS4\"' | cut -f1 | sort | tr '\\n' ' "
       "')\" = "
       "'TS4 TS4A TS4B '"}};
  for (const auto& [shell, check] : others) {
    if (std::system((std::string("command -v ") + shell + " >/dev/null").c_str()) != 0) continue;
    ASSERT_EQ(std::system((tool + "--completion " + shell + " > " + script).c_str()), 0);
    std::string command = check;
    command.replace(command.find("FILE"), 4, script);
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
  }
  ASSERT_EQ(std::system((tool + "--man " + folder_.string()).c_str()), 0);
  std::ifstream file(folder_ / "orva.1");
  const std::string page((std::istreambuf_iterator<char>(file)), {});
  for (const std::string command : {"simulate", "replay", "render", "live", "record"}) {
    EXPECT_NE(page.find("\\fB" + command + "\\fR"), std::string::npos) << command;
    EXPECT_TRUE(fs::exists(folder_ / ("orva-" + command + ".1")));
  }
}

}  // namespace
