// SPDX-License-Identifier: Apache-2.0
//
// `orva extract`, run as a process: what it writes is compared byte by byte with what was put in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "sim/capture_writer.h"
#include "sim/sensor.h"
#include "support/capture_file.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
using orva::test::Bytes;
using orva::test::CaptureFile;
using orva::test::Encoding;
using orva::test::EthernetFrame;
using orva::test::Ipv4Udp;
using testing::HasSubstr;

struct Packet {
  Bytes payload;
  int64_t time_ns;
  bool operator==(const Packet&) const = default;
};

class Extract : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() + "/" + name; }

  /// Runs a shell command in the folder, with `orva` in the place of %.
  int Run(std::string command) {
    for (size_t at = 0; (at = command.find('%')) != std::string::npos;) command.replace(at, 1, ORVA_TOOL);
    std::FILE* pipe = popen(("cd " + folder_.Path() + " && (" + command + ") 2>&1").c_str(), "r");
    text_.clear();
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) text_ += static_cast<char>(c);
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  std::vector<Packet> Read(const std::string& name) const {
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* capture =
        pcap_open_offline_with_tstamp_precision(Path(name).c_str(), PCAP_TSTAMP_PRECISION_NANO, error);
    std::vector<Packet> packets;
    if (capture == nullptr) return packets;
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    while (pcap_next_ex(capture, &header, &data) == 1) {
      packets.push_back({Bytes(data + 42, data + header->caplen),
                         header->ts.tv_sec * 1'000'000'000LL + header->ts.tv_usec});
    }
    pcap_close(capture);
    return packets;
  }

  /// The counts of the report's rows, which must add up to what it says was read.
  void ExpectSum(uint64_t records) const {
    std::istringstream lines(text_);
    uint64_t sum = 0;
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("  ", 0) == 0) sum += std::stoull(line);
    }
    EXPECT_EQ(sum, records) << text_;
    EXPECT_THAT(text_, HasSubstr(std::to_string(records) + " records read"));
  }

  const orva::test::TempFolder folder_;
  std::string text_;
};

Bytes Payload(size_t length, uint8_t seed) {
  Bytes payload(length);
  for (size_t i = 0; i < length; ++i) payload[i] = static_cast<uint8_t>(seed + 31 * i);
  return payload;
}

/// Bytes [begin, end) behind the IP header of a datagram, as a fragment of it.
Bytes Fragment(const Bytes& packet, uint8_t identification, size_t begin, size_t end) {
  const bool more = 20 + end < packet.size();
  const auto content = packet.begin() + 20;
  Bytes fragment(packet.begin(), more ? content + static_cast<long>(end) : packet.end());
  fragment.erase(fragment.begin() + 20, fragment.begin() + 20 + static_cast<long>(begin));
  fragment[2] = static_cast<uint8_t>(fragment.size() >> 8);
  fragment[3] = static_cast<uint8_t>(fragment.size());
  fragment[5] = identification;
  fragment[6] = static_cast<uint8_t>((more ? 0x20 : 0) | begin >> 11);
  fragment[7] = static_cast<uint8_t>(begin >> 3);
  return fragment;
}

/// Puts VLAN tags between the addresses and the type.
Bytes Tagged(Bytes frame, const std::vector<uint16_t>& tags) {
  Bytes words;
  for (const uint16_t tag : tags) {
    orva::test::AppendBigEndian(words, tag, 2);
    orva::test::AppendBigEndian(words, 7, 2);
  }
  frame.insert(frame.begin() + 12, words.begin(), words.end());
  return frame;
}

TEST_F(Extract, TakesStripsJoinsAndAccountsForTheRestHoweverThePacking) {
  const Bytes first = Payload(1360, 1), joined = Payload(1400, 3), odd = Payload(7, 5);
  const Bytes whole = Ipv4Udp(6699, joined), lost = Ipv4Udp(6699, Payload(1400, 9));
  Bytes padded = EthernetFrame(Ipv4Udp(6699, odd));
  padded.resize(60, 0xAA);  // as Ethernet does with short frames
  Bytes ipv6(60, 0);
  ipv6[0] = 0x60;
  for (const Encoding encoding : {Encoding::kNanoseconds, Encoding::kPcapng}) {
    CaptureFile(Path(encoding == Encoding::kPcapng ? "in.ng" : "in"), encoding)
        .At(1700000000, 123456789)
        .Record(EthernetFrame(Ipv4Udp(6699, first)))                    // 0
        .Record(Tagged(EthernetFrame(Ipv4Udp(6699, first)), {0x8100}))  // 1
        .Record(Tagged(padded, {0x88A8, 0x8100}))                       // 2
        .At(1700000003, 5)                                              // fragments come within a moment
        .Record(Tagged(EthernetFrame(Fragment(whole, 1, 800, 1408)), {0x8100}))
        .At(1700000003, 6)
        .Record(EthernetFrame(Fragment(lost, 2, 0, 800)))
        .At(1700000003, 7)
        .Record(EthernetFrame(Fragment(whole, 1, 0, 400)))
        .At(1700000003, 8)
        .Record(EthernetFrame(Fragment(whole, 1, 0, 400)))  // repeated
        .At(1700000003, 9)
        .Record(EthernetFrame(Fragment(whole, 1, 400, 800)))
        .At(1700000009, 0)  // too late
        .Record(EthernetFrame(Fragment(lost, 2, 800, 1408)))
        .Record(EthernetFrame(Fragment(lost, 3, 0, 800)))
        .Record(EthernetFrame(Fragment(lost, 3, 400, 1408)))  // overlaps
        .Record(EthernetFrame(Ipv4Udp(7000, first)))
        .Record(EthernetFrame(Ipv4Udp(6699, first)), 1)  // cut
        .Record(EthernetFrame(ipv6, 0x86DD))
        .Record(EthernetFrame(Bytes(28, 1), 0x0806))
        .Record(Tagged(Bytes(14, 2), {0x8100}))
        .Record(EthernetFrame(Ipv4Udp(6699, first, 0, 6)))
        .Record(EthernetFrame(Bytes{0x45, 0}))
        .Record(EthernetFrame(Ipv4Udp(6699, {})))
        .Record(EthernetFrame(Ipv4Udp(6699, Bytes(1600, 7))));
  }
  const std::vector<Packet> expected = {{first, 1700000000'123456789},
                                        {first, 1700000001'123456789},
                                        {odd, 1700000002'123456789},
                                        {joined, 1700000003'000000009}};
  const struct {
    const char* command;
    bool true_times;
  } packings[] = {
      {"% extract in out --port 6699", true},
      {"gzip -k in && % extract in.gz out --port 6699", true},
      {"head -c 2000 in | gzip > a; tail -c +2001 in | gzip | cat a - | % extract - out --port 6699", true},
      {"zstd -q in && % extract --port 6699 in.zst out", true},
      {"% extract - out --port 6699 < in.ng", false}};
  for (const auto& packing : packings) {
    ASSERT_EQ(Run(packing.command), 0) << packing.command << "\n" << text_;
    ExpectSum(20);
    if (!packing.true_times) {  // the helper that makes a pcapng squeezes them, and nothing is too late there
      EXPECT_EQ(Read("out").front().payload, first);
    } else {
      for (const char* row :
           {" 1  taken\n", " 2  taken without", " 3  fragments, joined into 1", " 4  left out, fragm",
            " 1  left out, fragments that were there twice", " 1  left out, of another port"}) {
        EXPECT_THAT(text_, HasSubstr(row));
      }
      EXPECT_EQ(Read("out"), expected) << packing.command;
    }
    fs::remove(Path("out"));
  }
}

TEST_F(Extract, MergesByTimeAndSplitsByTheSender) {
  Bytes other = EthernetFrame(Ipv4Udp(6699, Payload(9, 2)));
  other[14 + 15] = 77;  // 192.168.1.77
  CaptureFile(Path("a"))
      .At(1700000000, 5)
      .Record(other)
      .Datagram(6699, Payload(20, 1))
      .Datagram(6699, Payload(20, 2));
  CaptureFile(Path("b")).At(1700000001, 4).Datagram(6699, Payload(20, 3)).Record(other);
  ASSERT_EQ(Run("% extract a b all.pcap && % extract all.pcap one.pcap --split-by source"), 0) << text_;
  const std::vector<Packet> packets = Read("one_192.168.1.200.pcap");
  ASSERT_EQ(packets.size(), 3U);
  EXPECT_EQ(packets[0], (Packet{Payload(20, 3), 1700000001'000004000}));
  EXPECT_EQ(packets[1], (Packet{Payload(20, 1), 1700000001'000005000}));
  EXPECT_EQ(Read("one_192.168.1.77.pcap").size(), 2U);
  ASSERT_EQ(Run("% extract all.pcap x --source 192.168.1.77 --from 1 --to 2023-11-14T22:13:22.5Z"), 0)
      << text_;
  EXPECT_EQ(Read("x"), (std::vector<Packet>{{Payload(9, 2), 1700000002'000004000}}));
}

TEST_F(Extract, CutsFramesWhereTheModelEndsThem) {
  const struct {
    LidarType model;
    const char* name;
    uint32_t phase;                           ///< blocks missing at the start
    size_t first, last;                       ///< packets that belong to the frames 1 and 2
  } cases[] = {{TS4B, "TS4B", 0, 768, 2303},  // a frame end closes its packet
               {TS4B, "TS4B", 7, 767, 2303},  // or stands inside one, which two frames share
               {TS6, "TS6", 0, 384, 1151},
               {NV2, "NV2", 0, 57, 168}};  // the next frame's first line ends a frame
  for (const auto& sensor : cases) {
    orva::sim::Sensor source({.model = sensor.model, .frames = 4, .grid_phase = sensor.phase});
    std::vector<Packet> all;
    {
      orva::sim::CaptureOptions options;
      options.nanoseconds = true;
      orva::sim::CaptureWriter file(Path("in"), options);
      for (orva::sim::TimedPacket packet; source.Next(packet);) {
        file.Write(packet);
        all.push_back({packet.payload, packet.time_ns});
      }
      file.Finish();
    }
    ASSERT_EQ(Run(std::string("% extract in out --force --frames 1-2 --model ") + sensor.name), 0) << text_;
    const auto begin = all.begin();
    EXPECT_EQ(Read("out"), std::vector<Packet>(begin + static_cast<long>(sensor.first),
                                               begin + static_cast<long>(sensor.last) + 1))
        << sensor.name << " " << sensor.phase;
    // Points of the extract's frames, and of these frames of the whole. A TS6's first points bear the time of
    // the packet before, which the extract lacks.
    const std::string replay = std::string(" --format csv --force --model ") + sensor.name;
    const std::string fields = sensor.model == TS6 ? "1-5" : "1-6";
    ASSERT_EQ(Run("rm -rf whole part; % replay in --frames 1-2 --out whole" + replay +
                  " && % replay out --out part" + replay),
              0)
        << text_;
    for (const char* files :
         {"whole/frame_0001*.csv part/frame_0000*.csv", "whole/frame_0002*.csv part/frame_0001*.csv"}) {
      EXPECT_EQ(Run(std::string("for f in ") + files + "; do cut -d, -f " + fields +
                    " $f | md5sum; done | uniq | wc -l"),
                0);
      EXPECT_EQ(text_, "1\n") << sensor.name << " " << sensor.phase << " " << files;
    }
  }
}

TEST_F(Extract, CountsTheFramesOfEachPortWhereTheSendersAreHidden) {
  std::vector<Packet> wanted;
  for (const uint16_t port : {uint16_t{6699}, uint16_t{6700}}) {
    orva::sim::CaptureOptions options{.nanoseconds = true, .source = {}, .source_port = 0};
    options.destination_port = port;
    orva::sim::CaptureWriter file(Path(std::to_string(port)), options);
    orva::sim::Sensor sensor({.model = NV2, .seed = port, .frames = 3});
    orva::sim::TimedPacket packet;
    for (size_t i = 0; sensor.Next(packet); ++i) {
      packet.time_ns += port;
      if (port == 6699 || i >= 20) file.Write(packet);  // the other one begins in the midst of a frame
      if (i > 56 && i <= 112) wanted.push_back({packet.payload, packet.time_ns});
    }
    file.Finish();
  }
  std::sort(wanted.begin(), wanted.end(), [](const auto& a, const auto& b) { return a.time_ns < b.time_ns; });
  ASSERT_EQ(Run("% extract 6699 6700 out --frames 1 --model NV2"), 0) << text_;
  EXPECT_EQ(Read("out"), wanted);
}

TEST_F(Extract, RefusesWithoutATrace) {
  CaptureFile(Path("in")).Datagram(6699, Payload(500, 1)).Datagram(6699, Payload(500, 2));
  ASSERT_EQ(Run("touch there empty; ln -s loop loop; gzip -k in; ls > list"), 0);
  const auto files = [this] { return std::distance(fs::directory_iterator(folder_.Path()), {}); };
  const auto before = files();
  const struct {
    const char* command;
    int exit_code;
    const char* text;
  } cases[] = {{"% extract in there", 1, "--force"},
               {"% extract in out --port 1", 1, "nothing was taken"},
               {"% extract in out --split-by source --port 1", 1, "nothing was taken"},
               {"% extract loop out", 1, "symbolic links"},
               {"% extract . out", 1, "folder"},
               {"% extract empty out", 1, "no capture file"},
               {"% extract list out", 1, "no capture file"},
               {"head -c 20 in.gz | % extract - out", 1, "breaks off"},
               {"% extract in /dev/full", 1, "No space left"},
               {"(ulimit -f 0; trap '' XFSZ; % extract in out)", 1, "File too large"},
               {"% extract in out --frames 0 --model KR7", 2, "do not say where frames end"},
               {"% extract in out --frames 2-1 --model NV2", 2, "range"},
               {"% extract in out --from noon", 2, "is no time"},
               {"% extract in", 2, "orva extract in.pcap out.pcap"}};
  for (const auto& odd : cases) {
    EXPECT_EQ(Run(odd.command), odd.exit_code) << odd.command << "\n" << text_;
    EXPECT_THAT(text_, HasSubstr(odd.text));
    EXPECT_EQ(files(), before) << odd.command;
  }
}

}  // namespace
