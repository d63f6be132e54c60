// SPDX-License-Identifier: Apache-2.0
//
// Damage of every kind in every place, once per model and per file format: each has an answer that is known
// beforehand, and nothing of the rest is lost.
#include <algorithm>

#include "input/input_pcap.h"
#include "param/calibration_folder.h"
#include "param/calibration_stream.h"
#include "support/calibrations.h"
#include "support/decoder_rig.h"
#include "support/player.h"
#include "support/recording.h"
#include "support/reference_download.h"

namespace orva::test {
namespace {

using Cloud = PointCloud<PointSource>;
using Counts = std::vector<uint64_t>;

void FlipBit(uint8_t* bytes, size_t bit) {
  bytes[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
}

TEST(Damage, EveryLengthAndEveryHeaderBitOfAPacket) {
  Random random(1);
  for (const WireLayout& layout : WIRE_LAYOUTS) {
    SCOPED_TRACE(layout.name);
    const ConsoleCapture quiet;
    DecoderRig<Cloud> rig(layout.model, OpenLimits());
    rig.decoder->error_cb_ = [](const Error&) {};
    Packet packet = PlausiblePacket(random, layout.model);
    Bytes longer = packet.bytes();
    longer.resize(1546);
    uint16_t seq = 77;
    for (size_t length = 0; length <= longer.size(); ++length) {
      if (length == layout.length) continue;
      const Bytes cut(longer.begin(), longer.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_FALSE(rig.decoder->ProcessMsopPacket(cut.data(), length, 0));
      EXPECT_FALSE(rig.decoder->toSplite(cut.data(), length, seq));
    }
    for (size_t bit = 0; bit < 64; ++bit) {
      FlipBit(packet.data(), bit);
      EXPECT_FALSE(rig.decoder->ProcessMsopPacket(packet.data(), packet.size(), 0));
      EXPECT_FALSE(rig.decoder->toSplite(packet.data(), packet.size(), seq));
      FlipBit(packet.data(), bit);
    }
    // The line, the first block and all behind the blocks: decoded as transcribed, whatever they say.
    uint64_t decoded = 0;
    for (size_t bit = 64; bit < packet.size() * 8; ++bit) {
      if (bit == 50 * 8) bit = (packet.size() - 50) * 8;
      FlipBit(packet.data(), bit);
      rig.Feed(packet);
      rig.Probe(packet, seq);
      FlipBit(packet.data(), bit);
      ++decoded;
    }
    ASSERT_NO_FATAL_FAILURE(rig.Compare());
    for (const auto* counts : {&rig.decoder->ProcessedPackets(), &rig.decoder->ExaminedPackets()}) {
      EXPECT_EQ(
          (Counts{counts->wrong_length.Value(), counts->wrong_identifier.Value(), counts->accepted.Value()}),
          (Counts{1546, 64, decoded}));
    }
  }
}

class FileDamage : public testing::Test {
 protected:
  /// The payloads that are read before the end, each a piece of the file; in `places` where each record
  /// begins, and the end.
  std::vector<Bytes> Read(const Bytes& file, std::vector<size_t>* places = nullptr) {
    InputParam param;
    param.msop_port = kRecordingPort;
    param.pcap_path = folder_.Write("damaged", std::string(file.begin(), file.end()));
    tevoro::lidar::InputPcap input(param);
    std::vector<Bytes> payloads;
    if (!input.Init()) return payloads;
    tevoro::lidar::PacketView packet;
    long position = 0;
    for (int length = 0; length >= 0;) {
      length = input.NextPacket(packet, &position, true);
      if (length > 0) {
        const Bytes& payload = payloads.emplace_back(packet.data, packet.data + packet.length);
        EXPECT_TRUE(std::search(file.begin(), file.end(), payload.begin(), payload.end()) != file.end());
      }
      if (payloads.size() > file.size() / 16) ADD_FAILURE() << "more than the file has room for";
      if (places != nullptr) places->push_back(static_cast<size_t>(position));
    }
    return payloads;
  }

  const ConsoleCapture quiet_, quiet_errors_{STDERR_FILENO};
  TempFolder folder_{"/dev/shm"};
};

TEST_F(FileDamage, CutAtEveryByteAndEveryBitFlipped) {
  for (const Encoding encoding : {Encoding::kMicroseconds, Encoding::kNanoseconds, Encoding::kOtherByteOrder,
                                  Encoding::kPcapng, Encoding::kPcapngSeconds}) {
    SCOPED_TRACE(static_cast<int>(encoding));
    const std::string path = folder_.Path("sound");
    CaptureFile(path, encoding)
        .Datagram(kRecordingPort, Bytes(8, 1))
        .Datagram(kRecordingPort, Bytes(12, 2))
        .Datagram(kRecordingPort, Bytes(4, 3));
    Bytes file = ReadBytes(path);
    std::vector<size_t> places;
    const std::vector<Bytes> sound = Read(file, &places);
    ASSERT_EQ(sound.size(), 3U);
    ASSERT_EQ(places.back(), file.size());
    const auto whole_before = [&](size_t byte) {
      return std::upper_bound(places.begin() + 1, places.end(), byte) - (places.begin() + 1);
    };
    for (size_t cut = 0; cut < file.size(); ++cut) {
      const std::vector<Bytes> whole(sound.begin(), sound.begin() + whole_before(cut));
      ASSERT_EQ(Read(Bytes(file.data(), file.data() + cut)), whole) << cut;
    }
    std::vector<size_t> begins;  // of the payloads
    for (size_t i = 0; i < sound.size(); ++i) {
      const auto end = file.begin() + static_cast<std::ptrdiff_t>(places[i + 1]);
      begins.push_back(static_cast<size_t>(
          std::find_end(file.begin(), end, sound[i].begin(), sound[i].end()) - file.begin()));
    }
    for (size_t bit = 0; bit < file.size() * 8; ++bit) {
      FlipBit(file.data(), bit);
      const std::vector<Bytes> read = Read(file);
      FlipBit(file.data(), bit);
      if (bit / 8 < places[0]) continue;  // may change what every record means
      const auto record = static_cast<size_t>(whole_before(bit / 8));
      std::vector<Bytes> wanted = sound;
      if (const size_t at = bit - 8 * begins[record]; at < 8 * sound[record].size()) {
        FlipBit(wanted[record].data(), at);
        ASSERT_EQ(read.size(), wanted.size()) << bit;
      } else {
        wanted.resize(record);  // what follows may be anything
      }
      ASSERT_TRUE(read.size() >= wanted.size() && std::equal(wanted.begin(), wanted.end(), read.begin()))
          << bit;
    }
  }
}

TEST_F(FileDamage, ACalibrationTextCutAtEveryByte) {
  const std::string text = "0.5,-1e3\n\n7,\r\n , 8";
  const std::vector<std::pair<size_t, float>> fields = {{0, 0.5F},  {4, -1e3F}, {10, 7.0F},
                                                        {12, 0.0F}, {14, 0.0F}, {16, 8.0F}};
  for (size_t cut = 0; cut <= text.size(); ++cut) {
    std::vector<float> values, wanted;
    for (const auto& [start, value] : fields) {
      if (start < cut) wanted.push_back(value);
    }
    const size_t found =
        tevoro::lidar::LoadFile(folder_.Write("weight.csv", text.substr(0, cut)), values, 0, 1);
    ASSERT_TRUE(found == wanted.size() && values.size() == found) << cut;
    if (cut == text.size()) EXPECT_EQ(values, wanted);
    if (found > 1) EXPECT_TRUE(std::equal(wanted.begin(), wanted.end() - 1, values.begin())) << cut;
  }
}

/// A calibration download beside its transcription: both take the same replies, and must say the same.
struct DownloadRig {
  explicit DownloadRig(LidarType model) : wanted(model) {}

  void Push(const std::string& reply) {
    const int next = stream.PushData(wanted.model, reinterpret_cast<const signed char*>(reply.data()),
                                     static_cast<int>(reply.size()), record.get(), last_chunk, complete);
    ASSERT_EQ(next, wanted.Push(reply));
    ASSERT_EQ(last_chunk, wanted.last_chunk);
    ASSERT_EQ(complete, wanted.complete);
    ASSERT_EQ(stream.FilledSections(), wanted.filled);
  }
  bool Holds(const CheckParam& sent) const { return std::memcmp(record.get(), &sent, sizeof(sent)) == 0; }

  ReferenceDownload wanted;
  tevoro::lidar::CalibrationStream stream;
  std::unique_ptr<CheckParam> record = std::make_unique<CheckParam>();
  bool last_chunk = false, complete = false;
};

TEST(DownloadDamage, EveryBitAndEveryLengthOfEveryReply) {
  const ConsoleCapture quiet;
  CheckParam sent;
  SetWeights(sent, {1, 2, 3, 4}, {5, 6, 7, 8, 9, 10, 11, 12});
  const std::string stream = SectionStream(sent, "CD");
  const CheckParam untouched;
  for (const WireLayout& layout : WIRE_LAYOUTS) {
    const bool takes = tevoro::lidar::CalibrationStream::SectionsOf(layout.model) > 0;
    for (size_t damaged = 0; damaged < 3; ++damaged) {
      const std::string sound = CalibrationReply(stream.size(), stream.substr(20 * damaged, 20));
      for (size_t damage = 0; damage < 9 * sound.size(); ++damage) {  // flips, then cuts
        SCOPED_TRACE(testing::Message() << layout.name << ", reply " << damaged << ", damage " << damage);
        std::string reply = sound;
        if (damage < 8 * sound.size()) FlipBit(reinterpret_cast<uint8_t*>(reply.data()), damage);
        reply.resize(std::min(sound.size(), 9 * sound.size() - damage - 1));
        DownloadRig rig(layout.model);
        const bool refused = reply.compare(0, 4, sound, 0, 4) != 0;
        // The sensor goes on for as long as it is asked, in the end with bytes of no meaning.
        for (size_t i = 0; i < 8 && !rig.complete; ++i) {
          if (i == damaged) ASSERT_NO_FATAL_FAILURE(rig.Push(reply));
          if (i == damaged && !refused) continue;
          const std::string piece = 20 * i < stream.size() ? stream.substr(20 * i, 20) : std::string(20, 'x');
          ASSERT_NO_FATAL_FAILURE(rig.Push(CalibrationReply(stream.size(), piece)));
        }
        ASSERT_TRUE(rig.Holds(*rig.wanted.record));
        // Between length and piece, and behind the piece, nothing is read.
        const bool unread = reply.size() == sound.size() && reply.compare(0, 8, sound, 0, 8) == 0 &&
                            reply.compare(36, sound.size() - 39, sound, 36, sound.size() - 39) == 0;
        if (refused || unread) ASSERT_TRUE(rig.complete && rig.Holds(takes ? sent : untouched));
      }
    }
  }
}

TEST(DownloadDamage, OnlyAWholeStreamFillsEverySection) {
  const ConsoleCapture quiet;
  Random random(4);
  const auto sent = PlausibleCalibration(random);
  const std::string sound = SectionStream(*sent);
  for (const LidarType model : {TS4A, TS4B, TS6}) {
    const auto download = [&](const std::string& stream, size_t announced) {
      DownloadRig rig(model);
      rig.Push(CalibrationReply(announced, stream));
      EXPECT_TRUE(rig.complete && rig.Holds(*rig.wanted.record));
      EXPECT_EQ(rig.stream.FilledSections() == tevoro::lidar::CalibrationStream::SectionsOf(model),
                rig.Holds(*sent));
      return rig.stream.FilledSections();
    };
    EXPECT_EQ(download(sound, sound.size()), 4U);
    EXPECT_EQ(download(sound, sound.size() - 1), 3U);
    EXPECT_EQ(download(sound.substr(0, sound.size() - 1), sound.size() - 1), 3U);
    for (const char* marker : {"AAAA", "BBBB", "CCCC", "DDDD"}) {
      for (size_t i = 0; i < 4; ++i) {
        std::string stream = sound;
        FlipBit(reinterpret_cast<uint8_t*>(&stream[sound.find(marker) + i]), 3);
        EXPECT_EQ(download(stream, stream.size()), 3U) << model << marker << i;
      }
    }
  }
}

/// A model's stream that has been through everything: reordered, repeated, spliced, cut and flipped.
std::vector<Bytes> DamagedStream(Random& random, LidarType model) {
  std::vector<Bytes> stream;
  for (const Packet& packet : FiveSweeps(random, model)) stream.push_back(packet.bytes());
  for (const WireLayout& other : WIRE_LAYOUTS) {  // both of its length and of the other's
    Bytes spliced = PlausiblePacket(random, other.model).bytes();
    std::copy_n(stream[1].begin(), 500, spliced.begin());
    stream.push_back(spliced);
    spliced.resize(LayoutOf(model).length, 0xA5);
    stream.push_back(spliced);
  }
  for (size_t i = 0; i < 30; ++i) stream.push_back(stream[i * 7 % 30]);
  for (size_t bit = 0; bit < 64; ++bit) {
    stream.push_back(stream[bit % 30]);
    FlipBit(stream.back().data(), bit);
    stream.emplace_back(stream[2].begin(), stream[2].begin() + std::ptrdiff_t{17} * static_cast<int>(bit));
  }
  std::shuffle(stream.begin() + 1, stream.end(), random);  // the first one opens the first frame
  return stream;
}

struct Fates {
  Fates(LidarType model, const std::vector<Bytes>& stream) {
    const Packet sound(model);
    for (const Bytes& bytes : stream) {
      if (bytes.empty()) {
        ++empty;
      } else if (bytes.size() != sound.size()) {
        ++wrong_length;
      } else if (!std::equal(bytes.begin(), bytes.begin() + 8, sound.data())) {
        ++wrong_identifier;
      } else {
        std::copy(bytes.begin(), bytes.end(), accepted.emplace_back(model).data());
      }
    }
  }
  uint64_t empty = 0, wrong_length = 0, wrong_identifier = 0;
  std::vector<Packet> accepted;
};

TEST(StreamDamage, InARecording) {
  Random random(2);
  int encoding = 0;
  for (const WireLayout& layout : WIRE_LAYOUTS) {
    SCOPED_TRACE(layout.name);
    const TempFolder folder;
    const std::vector<Bytes> stream = DamagedStream(random, layout.model);
    const Fates fates(layout.model, stream);
    const DriverParam param = ReplayParam(layout.model, folder.Path("damaged"));
    {
      CaptureFile file(param.input_param.pcap_path, static_cast<Encoding>(encoding++ % 5));
      for (const Bytes& bytes : stream) file.Datagram(kRecordingPort, bytes);
      file.Record(EthernetFrame(Ipv4Udp(kRecordingPort, stream[0])), 1).Datagram(1, stream[0]);
    }
    const ConsoleCapture quiet;
    Player<Cloud> player;
    ReferencePlayer<Cloud> reference(layout.model, OpenLimits(), fates.accepted);
    ASSERT_EQ(player.Open(param), std::ssize(reference.index));
    for (size_t frame = 0; frame < reference.index.size(); ++frame) {
      reference.Play(frame);
      ASSERT_TRUE(player.Ask(static_cast<int>(frame)));
      ASSERT_NE(player.Wait(reference.clouds.size()), nullptr);
    }
    player.driver.Stop();
    ASSERT_EQ(player.Count(), reference.clouds.size());
    for (size_t i = 0; i < reference.clouds.size(); ++i) {
      ASSERT_NO_FATAL_FAILURE(ExpectSameCloud(*player.Wait(i + 1), *reference.clouds[i]));
    }
    const DriverStatistics s = player.Statistics();
    EXPECT_EQ(
        (Counts{s.index_records, s.index_not_for_us, s.index_refused_length, s.index_refused_identifier}),
        (Counts{stream.size() + 2, fates.empty + 2, fates.wrong_length, fates.wrong_identifier}));
    EXPECT_EQ(s.received, s.decoded + s.refused_length + s.refused_identifier + s.not_for_us);
    EXPECT_GE(s.received, s.index_records);
  }
}

TEST(StreamDamage, OnTheNetwork) {
  Random random(3);
  for (const WireLayout& layout : WIRE_LAYOUTS) {
    SCOPED_TRACE(layout.name);
    const std::vector<Bytes> stream = DamagedStream(random, layout.model);
    const Fates fates(layout.model, stream);
    const DriverParam param = LiveParam(layout.model);
    const ConsoleCapture quiet;
    Player<Cloud> player;
    ASSERT_TRUE(player.Run(param));
    DataPort port(param.input_param.msop_port);
    for (const Bytes& bytes : stream) port.SendBytes(bytes.data(), bytes.size());
    ASSERT_TRUE(Eventually([&] {
      const DriverStatistics s = player.Statistics();
      return s.decoded + s.refused_length + s.refused_identifier + s.not_for_us == stream.size();
    }));
    player.driver.Stop();
    const DriverStatistics s = player.Statistics();
    EXPECT_EQ(
        (Counts{s.received, s.decoded, s.refused_length, s.refused_identifier, s.not_for_us, s.discarded}),
        (Counts{stream.size(), fates.accepted.size(), fates.wrong_length, fates.wrong_identifier, fates.empty,
                0}));
    const auto frames = ExpectedFrames<Cloud>(layout.model, fates.accepted);
    ASSERT_EQ(player.Count(), frames.size());
    for (size_t i = 0; i < frames.size(); ++i) {
      ASSERT_NO_FATAL_FAILURE(ExpectSameCloud(*player.Wait(i + 1), *frames[i]));
    }
  }
}

}  // namespace
}  // namespace orva::test
