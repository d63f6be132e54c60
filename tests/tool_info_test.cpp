// SPDX-License-Identifier: Apache-2.0
//
// `orva info` and `orva check`, run as processes: their reports are their results.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>

#include "sim/capture_writer.h"
#include "sim/sensor.h"
#include "support/calibrations.h"
#include "support/capture_file.h"
#include "support/temp_folder.h"

namespace {

using orva::test::Bytes;
using orva::test::CaptureFile;
using orva::test::EthernetFrame;
using orva::test::Ipv4Udp;
using orva::test::TempFolder;
using testing::HasSubstr;

struct Outcome {
  int exit_code;
  std::string text;
};

Outcome Orva(const std::string& arguments) {
  std::FILE* pipe = popen((ORVA_TOOL " " + arguments + " 2>&1").c_str(), "r");
  Outcome outcome{-1, ""};
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) outcome.text += static_cast<char>(c);
  const int status = pclose(pipe);
  outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

std::string Simulate(const TempFolder& folder, LidarType model) {
  const std::string path = folder.Path() + "/" + std::to_string(model) + ".pcap";
  orva::sim::Sensor sensor({.model = model, .frames = 3});
  orva::sim::CaptureWriter file(path);
  for (orva::sim::TimedPacket packet; sensor.Next(packet);) file.Write(packet);
  file.Finish();
  return path;
}

TEST(ToolInfo, NamesTheModelOrWhatWouldSettleIt) {
  const TempFolder folder;
  const struct {
    LidarType model;
    const char* models;
    const char* frames;
  } cases[] = {
      {TS4B, R"("models":["TS4B"],"ambiguous":false)", R"("frame_ends":3,"frames_per_second":10.0)"},
      {TS6, R"("models":["TS6"],"ambiguous":false)", R"("fewest_packets":384,"most_packets":384)"},
      {NV2, R"("models":["NV2"],"ambiguous":false)", R"("fewest_packets":56,"most_packets":56)"},
      {TS4A, R"("models":["TS4A"],"ambiguous":false)", R"("frame_ends":3)"},
      {KR7, R"("models":["NV2","KR7","TS4"],"ambiguous":true)", R"("frame_ends":0)"},
  };
  for (const auto& sensor : cases) {
    const Outcome info = Orva("info --json " + Simulate(folder, sensor.model));
    EXPECT_EQ(info.exit_code, 0);
    EXPECT_THAT(info.text, HasSubstr(sensor.models));
    EXPECT_THAT(info.text, HasSubstr(sensor.frames));
    EXPECT_THAT(info.text, HasSubstr(R"("port":6699)"));
  }
}

TEST(ToolInfo, EverySkippedRecordHasItsReason) {
  const TempFolder folder;
  const std::string path = folder.Path() + "/odd.pcap";
  Bytes payload = {0xEE, 0xFF, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  payload.resize(1104, 0);
  const Bytes packet = Ipv4Udp(7000, payload);
  Bytes other = packet;
  other[15] = 9;  // last byte of the sender's address
  Bytes fragment = packet;
  fragment[6] = 0x20;  // more fragments follow
  Bytes ipv6(48, 0);
  ipv6[0] = 0x60;
  ipv6[6] = 17;
  CaptureFile(path)
      .Datagram(7000, payload, 2)
      .Record(EthernetFrame(other))
      .Datagram(7000, Bytes(1104, 7))
      .Datagram(7001, Bytes(100, 7))
      .Datagram(7001, {})
      .Datagram(7001, Bytes(1600, 7))
      .Record(EthernetFrame(packet), 1)
      .Record(EthernetFrame(packet, 0x8100))
      .Record(EthernetFrame(ipv6, 0x86DD))
      .Record(EthernetFrame(fragment))
      .Record(EthernetFrame(Ipv4Udp(7000, payload, 0, 6)))
      .Record(EthernetFrame(Bytes(28, 1), 0x0806))
      .Record(EthernetFrame(Bytes{0x45, 0}));
  const Outcome info = Orva("info --json " + path);
  EXPECT_EQ(info.exit_code, 0);
  EXPECT_THAT(info.text,
              HasSubstr(R"("skipped":{"cut":1,"vlan":1,"ipv6":1,"fragment":1,"other_protocol":1,"no_ip":1,)"
                        R"("malformed":1,"empty":1,"too_long":1,"wrong_length":1,"wrong_identifier":1})"));
  EXPECT_THAT(info.text, HasSubstr(R"("port":7000,"models":["TS6"])"));
  EXPECT_THAT(info.text, HasSubstr(R"("senders":[{"source":"192.168.1.9","port":7000,"packets":1},)"
                                   R"({"source":"192.168.1.200","port":7000,"packets":1}])"));
  EXPECT_THAT(Orva("info " + path).text, HasSubstr("2 senders share port 7000"));
}

TEST(ToolInfo, TellsTimesAfter2038) {
  const TempFolder folder;
  const std::string late = folder.Path("late.pcap"), cut = folder.Path("cut.pcap");
  CaptureFile(late).At(2'200'000'000, 0).Datagram(7000, Bytes(9, 7)).Datagram(7000, Bytes(9, 8));
  const Outcome extract = Orva("extract " + late + " " + cut + " --from 2039-09-18T23:06:41");
  ASSERT_EQ(extract.exit_code, 0) << extract.text;
  EXPECT_THAT(Orva("info --json " + late).text, HasSubstr(R"("first":2200000000.000000,)"));
  EXPECT_THAT(Orva("info --json " + cut).text, HasSubstr(R"("first":2200000001.000000,)"));
}

TEST(ToolInfo, SurvivesWhatIsNoRecording) {
  const TempFolder folder;
  const Bytes whole = orva::test::ReadBytes(Simulate(folder, NV2));
  const std::string path = folder.Write("cut.pcap", std::string(whole.begin(), whole.begin() + 5000));
  const Outcome cut = Orva("info " + path);
  EXPECT_EQ(cut.exit_code, 0);
  EXPECT_THAT(cut.text, HasSubstr("breaks off"));
  // A recording of what the driver skips is a failure, and its report valid whatever its name is.
  const std::string odd = folder.Path() + "/it\xFF\xC3\xA4 $.pcap";
  CaptureFile(odd).Record(EthernetFrame(Ipv4Udp(7000, Bytes(1104, 7)), 0x8100));
  const Outcome vlan = Orva("info --json '" + odd + "'");
  EXPECT_EQ(vlan.exit_code, 1);
  EXPECT_THAT(vlan.text, HasSubstr("/it\\ufffd\xC3\xA4 $.pcap\""));
  EXPECT_THAT(vlan.text, HasSubstr("1 records: VLAN-tagged"));
  EXPECT_EQ(Orva("info " + folder.Path()).exit_code, 1);
  EXPECT_EQ(Orva("info /dev/null").exit_code, 1);
}

TEST(ToolInfo, TryWorksWhenPastedAndNothingIsOverwritten) {
  const TempFolder folder;
  const std::string odd = folder.Path() + "/it's $HOME.pcap";
  std::rename(Simulate(folder, NV2).c_str(), odd.c_str());
  const std::string quoted = "\"$(ls " + folder.Path() + "/it*)\"";
  const Outcome info = Orva("info " + quoted);
  const size_t at = info.text.find("Try: orva ");
  ASSERT_NE(at, std::string::npos) << info.text;
  const std::string pasted = info.text.substr(at + 10, info.text.find('\n', at) - at - 10);
  const std::string log = folder.Path() + "/log";
  const Outcome replay = Orva(pasted + " --driver-log " + log);
  EXPECT_EQ(replay.exit_code, 0) << pasted << "\n" << replay.text;
  EXPECT_EQ(replay.text.find_first_of("\033\r"), std::string::npos) << "a pipe gets no escapes";
  const Bytes lines = orva::test::ReadBytes(log);
  EXPECT_THAT(std::string(lines.begin(), lines.end()), HasSubstr("pcap file is load finished!\n"));
  // A recording in the place of the log stays what it is.
  const Bytes before = orva::test::ReadBytes(odd);
  EXPECT_EQ(Orva(pasted + " --driver-log " + quoted).exit_code, 1);
  EXPECT_EQ(orva::test::ReadBytes(odd), before);
  EXPECT_THAT(Orva("info " + Simulate(folder, KR7)).text,
              HasSubstr("cannot be told apart, NV2 or KR7 or TS4"));
}

TEST(ToolCheck, AcceptsWhatTheDriverAccepts) {
  orva::test::Random random(6);
  const TempFolder folder;
  orva::test::WriteCalibration(folder, *orva::test::PlausibleCalibration(random));
  const std::string command = "check " + folder.Path() + " --model ";
  const Outcome good = Orva(command + "TS4B");
  EXPECT_EQ(good.exit_code, 0) << good.text;
  EXPECT_EQ(good.text.find("Accepted"), 0U) << "the verdict comes first";
  EXPECT_THAT(good.text, HasSubstr("taken for: elevation\n  holds 49152 values, needs 49152\n"));

  const Outcome other_model = Orva(command + "TS4A");
  EXPECT_EQ(other_model.exit_code, 1);
  EXPECT_THAT(other_model.text, HasSubstr("holds 49152 values, needs 196608\n  WRONG: too short"));
  EXPECT_EQ(Orva(command + "NV2").exit_code, 1);

  folder.Write("weight_old.csv", "label,1,nan,3,4\n");
  const Outcome fifth = Orva(command + "TS6");
  EXPECT_EQ(fifth.exit_code, 1);
  EXPECT_THAT(fifth.text, HasSubstr("WRONG: 1 value is NaN"));
  EXPECT_THAT(fifth.text, HasSubstr("5 usable files, exactly 4 are needed"));
  EXPECT_EQ(Orva("check " + folder.Path() + "/none --model TS4B").exit_code, 1);
}

TEST(ToolCheck, NoCommandTakesWhatTheDriverUsesWrongly) {
  const TempFolder folder;
  const std::string recording = Simulate(folder, TS4B);
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const struct {
    const char* parent;
    void (*change)(orva::test::CheckParam&);
    int exit_code;
    const char* says;
  } cases[] = {
      {"plain", [](auto&) {}, 0, "near_filter  fine\n"},
      {"lightweight", [](auto&) {}, 1, "near_filter.csv counts as weight, for its folder's name"},
      {"zero", [](auto& c) { std::memset(&c.azimuth, 0, sizeof(c.azimuth)); }, 1, "azimuth      WRONG: /"},
      {"nan", [](auto& c) { std::memset(&c.elevation, 0xFF, sizeof(c.elevation)); }, 1,
       "elevation    WRONG: /"},
      {"one", [](auto& c) { c.weight[1] = kNan; }, 1, "1 value is NaN or infinite"},
      {"filter", [](auto& c) { c.near_filter[7] = kNan; }, 1, "near_filter  WRONG: /"},
      {"dead", [](auto& c) { c.azimuth[3] = kNan; }, 0, "azimuth.csv: 1 direction without an angle"},
      {"unused", [](auto& c) { c.elevation[200] = kNan; }, 0, "elevation    fine\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.parent);
    std::filesystem::create_directory(folder.Path(c.parent));
    const TempFolder calib(folder.Path(c.parent));
    orva::test::Random random(6);
    const auto check = orva::test::PlausibleCalibration(random);
    c.change(*check);
    orva::test::WriteCalibration(calib, *check);
    calib.Write("azimuth_note.txt", "0\n");  // too short for the driver, and of no harm
    const Outcome verdict = Orva("check --model TS4B " + calib.Path());
    EXPECT_EQ(verdict.exit_code, c.exit_code) << verdict.text;
    EXPECT_THAT(verdict.text, HasSubstr(c.says));
    EXPECT_EQ(verdict.text.find("Accepted") == 0, c.exit_code == 0) << verdict.text;
    const std::string replay = "replay " + recording + " --model TS4B --frames 0 --calib " + calib.Path();
    EXPECT_EQ(Orva(replay).exit_code, c.exit_code);
    EXPECT_EQ(Orva(replay + " --uncalibrated").exit_code, 0);
  }
}

TEST(ToolCheck, ReadsALongFileInLittleMemory) {
  const TempFolder folder;
  folder.Write("weight_log.csv", std::string(40'000'000, ','));
  const pid_t tool = fork();
  if (tool == 0) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execl(ORVA_TOOL, "orva", "check", folder.Path().c_str(), "--model", "TS4B", nullptr);
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  ASSERT_EQ(wait4(tool, &status, 0, &usage), tool);
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_LT(usage.ru_maxrss, 100'000) << "kB";
}

}  // namespace
