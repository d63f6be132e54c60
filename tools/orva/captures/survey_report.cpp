// SPDX-License-Identifier: Apache-2.0
#include "captures/survey_report.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <map>
#include <utility>
#include <vector>

#include "captures/verdict.h"
#include "shared/json.h"
#include "shared/words.h"

namespace orva {
namespace {

struct SkipText {
  const char* key;
  const char* text;
};
/// In the order of Skip.
constexpr std::array<SkipText, kSkips> kSkipTexts = {{
    {"cut", "cut by a snapshot length (record with tcpdump -s 0)"},
    {"vlan", "VLAN-tagged: 'orva extract' strips the tags"},
    {"ipv6", "IPv6 on Ethernet: record with tcpdump -i any"},
    {"fragment", "IP fragments: 'orva extract' joins them"},
    {"other_protocol", "of another protocol than UDP"},
    {"no_ip", "no IP (ARP and the like)"},
    {"malformed", "broken: shorter than their own headers"},
    {"empty", "UDP without payload"},
    {"too_long", "payload longer than any sensor's packet"},
}};
constexpr size_t kRows = 16;

[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  return text;
}

unsigned long long Count(uint64_t count) {
  return count;
}

double Seconds(int64_t microseconds) {
  return static_cast<double>(microseconds) * 1e-6;
}

std::string Date(int64_t microseconds) {
  const std::time_t seconds = microseconds / 1'000'000;
  std::tm utc{};
  char text[64] = "?";
  if (gmtime_r(&seconds, &utc) != nullptr) std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &utc);
  return text;
}

std::string FirstBytes(const StreamKind& kind, const Stream& stream) {
  std::string text;
  for (size_t i = 0; i < std::min(kind.length, stream.first_bytes.size()); ++i) {
    text += Format("%02X", static_cast<unsigned>(stream.first_bytes[i]));
  }
  return text;
}

std::string Join(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

using StreamEntry = std::pair<const StreamKind, Stream>;

std::vector<const StreamEntry*> ByCount(const Survey& survey) {
  std::vector<const StreamEntry*> streams;
  for (const StreamEntry& entry : survey.streams) streams.push_back(&entry);
  std::stable_sort(streams.begin(), streams.end(), [](const StreamEntry* a, const StreamEntry* b) {
    return a->second.packets.count > b->second.packets.count;
  });
  return streams;
}

uint64_t Packets(const Survey& survey, bool model_length, bool sensor_identifier) {
  uint64_t packets = 0;
  for (const auto& [kind, stream] : survey.streams) {
    const bool wanted = IsModelLength(kind.length) == model_length &&
                        (!model_length || kind.sensor_identifier == sensor_identifier);
    packets += wanted ? stream.packets.count : 0;
  }
  return packets;
}

std::string StreamTable(const Survey& survey) {
  std::string text = "\n   PORT  BYTES  IDENTIFIER           PACKETS    PER S   GAP S  PAUSES\n";
  const auto streams = ByCount(survey);
  for (size_t i = 0; i < std::min(streams.size(), kRows); ++i) {
    const auto& [kind, stream] = *streams[i];
    text += Format("  %5u  %5zu  %-16s  %10llu %8.1f %7.3f  %6llu\n", static_cast<unsigned>(kind.port),
                   kind.length, kind.sensor_identifier ? "a sensor's" : FirstBytes(kind, stream).c_str(),
                   Count(stream.packets.count), stream.packets.Rate(),
                   std::min(Seconds(stream.packets.longest_gap), 9999.999), Count(stream.packets.pauses));
  }
  if (streams.size() > kRows) text += Format("  and %zu further kinds\n", streams.size() - kRows);
  if (survey.unlisted > 0) {
    text += Format("  and %llu packets of still other kinds\n", Count(survey.unlisted));
  }
  return text;
}

std::string Address(const Sender& sender) {
  const auto& part = sender.address;
  return Format("%u.%u.%u.%u", part[0], part[1], part[2], part[3]);
}

/// Two sensors on one port are no stream that a driver can decode.
std::string SenderTable(const Survey& survey) {
  if (survey.senders.empty()) return "";
  std::string text = "\n  SENSORS' PACKETS FROM  TO PORT     PACKETS\n";
  size_t rows = 0;
  std::map<uint16_t, size_t> senders;
  for (const auto& [sender, packets] : survey.senders) {
    ++senders[sender.port];
    if (rows++ < kRows) {
      text += Format("  %-21s  %7u  %10llu\n", Address(sender).c_str(), static_cast<unsigned>(sender.port),
                     Count(packets));
    }
  }
  if (rows > kRows) text += Format("  and %zu further senders\n", rows - kRows);
  for (const auto& [port, count] : senders) {
    if (count > 1) {
      text += Format("  %zu senders share port %u. 'orva extract IN OUT --split-by source' parts them.\n",
                     count, static_cast<unsigned>(port));
    }
  }
  return text;
}

std::string SkippedTable(const Survey& survey) {
  std::string rows;
  const auto row = [&rows](uint64_t count, const char* why) {
    if (count > 0) rows += Format("  %10llu  %s\n", Count(count), why);
  };
  for (size_t i = 0; i < kSkips; ++i) row(survey.skipped[i], kSkipTexts[i].text);
  row(Packets(survey, false, false) + survey.unlisted, "UDP of a length that no sensor sends");
  row(Packets(survey, true, false), "of a sensor's length, without its identifier");
  return rows.empty() ? "\nNothing is skipped.\n" : "\nNo sensor's packets, skipped:\n" + rows;
}

std::string FrameLines(const FrameEnds& frames) {
  if (frames.ends.count == 0) return Format("  Frames: %llu, without a frame end.\n", Count(frames.Frames()));
  std::string text =
      Format("  Frames: %llu, with %llu frame ends", Count(frames.Frames()), Count(frames.ends.count));
  if (frames.most_packets > 0) {
    text += Format(", %.2f a second, %llu to %llu packets each", frames.ends.Rate(),
                   Count(frames.fewest_packets), Count(frames.most_packets));
  }
  text += "\n";
  if (frames.incomplete + frames.merged > 0) {
    text += Format(
        "  NOT WHOLE: %llu frames lack packets, %llu are merged with the next (a whole one has %llu "
        "packets).\n",
        Count(frames.incomplete), Count(frames.merged), Count(frames.whole_frame));
  }
  return text;
}

/// The command that shows the verdict's frames, as a shell takes it.
std::string TryLine(const Survey& survey, const Verdict& verdict) {
  const std::string path = survey.path.rfind('-', 0) == 0 ? "./" + survey.path : survey.path;
  std::string command =
      "orva replay " + ShellWord(path) + Format(" --port %u", static_cast<unsigned>(verdict.port));
  if (verdict.models.size() > 1) return "  Try: " + command + " --model MODEL, with the model of the label\n";
  const std::string& model = verdict.models.front();
  const bool calibrated = model == "TS4B" || model == "TS6";
  return "  Try: " + command + " --model " + model + (calibrated ? " --calib FOLDER" : "") + "\n";
}

std::string VerdictText(const Survey& survey, const Verdict& verdict) {
  const bool certain = verdict.models.size() == 1;
  std::string text = Format("\nPort %u: %s%s\n", static_cast<unsigned>(verdict.port),
                            certain ? (verdict.models.front().front() == 'N' ? "likely an " : "likely a ")
                                    : "cannot be told apart, ",
                            Join(verdict.models, " or ").c_str());
  text += "  Why: " + verdict.why + ".\n";
  if (!certain) text += "  What settles it: " + verdict.settle + ".\n";
  text += FrameLines(*verdict.frames);
  const Timeline& packets = verdict.stream->packets;
  if (packets.pauses > 0) {
    text += Format("  Longest gap: %.3f s, %.3f s after the first packet.\n", Seconds(packets.longest_gap),
                   Seconds(packets.longest_gap_at - packets.first));
  }
  if (packets.steps_back > 0) {
    text += Format("  The capture's clock goes back %llu times.\n", Count(packets.steps_back));
  }
  return text + TryLine(survey, verdict);
}

std::string JsonTimes(const Timeline& times) {
  return Format(
      "\"first\":%.6f,\"last\":%.6f,\"per_second\":%.3f,\"longest_gap\":%.6f,"
      "\"longest_gap_at\":%.6f,\"pauses\":%llu,\"steps_back\":%llu",
      Seconds(times.first), Seconds(times.last), times.Rate(), Seconds(times.longest_gap),
      Seconds(times.longest_gap_at), Count(times.pauses), Count(times.steps_back));
}

}  // namespace

std::string TextReport(const Survey& survey) {
  const Timeline& records = survey.records;
  std::string text = survey.path + "\n";
  text += Format("  %s, link type %d (%s)\n", survey.is_pcapng ? "pcapng" : "pcap", survey.link_type,
                 survey.link_name.c_str());
  text += Format("  %llu records", Count(records.count));
  if (records.count > 0) {
    text += Format(", %.3f s from %s", Seconds(records.last - records.first), Date(records.first).c_str());
  }
  text += "\n";
  if (!survey.damage.empty()) text += "  The file breaks off: " + survey.damage + "\n";
  if (!survey.supported) {
    return text +
           "\nThe driver does not read this link type. Record on Ethernet, or with\n"
           "tcpdump -i any.\n";
  }
  if (!survey.streams.empty()) text += StreamTable(survey);
  text += SenderTable(survey);
  text += SkippedTable(survey);
  const std::vector<Verdict> verdicts = Judge(survey);
  if (verdicts.empty()) {
    text += "\nNo packets of a known sensor: the driver gets no frame out of this file.\n";
  }
  for (size_t i = 0; i < std::min(verdicts.size(), kRows); ++i) text += VerdictText(survey, verdicts[i]);
  return text;
}

std::string JsonReport(const Survey& survey) {
  std::string json = "{\"file\":" + JsonText(survey.path) + ",\"format\":";
  json += survey.is_pcapng ? "\"pcapng\"" : "\"pcap\"";
  json += Format(",\"link_type\":%d,\"link_name\":", survey.link_type) + JsonText(survey.link_name);
  json += Format(",\"link_type_supported\":%s,\"records\":{\"count\":%llu,",
                 survey.supported ? "true" : "false", Count(survey.records.count));
  json += JsonTimes(survey.records) +
          "},\"damage\":" + (survey.damage.empty() ? "null" : JsonText(survey.damage));

  std::vector<std::string> items;
  for (const StreamEntry* entry : ByCount(survey)) {
    const auto& [kind, stream] = *entry;
    items.push_back(Format("{\"port\":%u,\"length\":%zu,\"sensor_identifier\":%s,\"first_bytes\":\"%s\","
                           "\"packets\":%llu,",
                           static_cast<unsigned>(kind.port), kind.length,
                           kind.sensor_identifier ? "true" : "false", FirstBytes(kind, stream).c_str(),
                           Count(stream.packets.count)) +
                    JsonTimes(stream.packets) + "}");
  }
  json += ",\"streams\":[" + Join(items, ",") + "],\"senders\":[";
  items.clear();
  for (const auto& [sender, packets] : survey.senders) {
    items.push_back(Format("{\"source\":\"%s\",\"port\":%u,\"packets\":%llu}", Address(sender).c_str(),
                           static_cast<unsigned>(sender.port), Count(packets)));
  }
  json += Join(items, ",") + "],\"skipped\":{";
  for (size_t i = 0; i < kSkips; ++i) {
    json += Format("\"%s\":%llu,", kSkipTexts[i].key, Count(survey.skipped[i]));
  }
  json += Format("\"wrong_length\":%llu,\"wrong_identifier\":%llu}",
                 Count(Packets(survey, false, false) + survey.unlisted), Count(Packets(survey, true, false)));

  items.clear();
  for (const Verdict& verdict : Judge(survey)) {
    const FrameEnds& frames = *verdict.frames;
    std::vector<std::string> models;
    for (const std::string& model : verdict.models) models.push_back(JsonText(model));
    items.push_back(
        Format("{\"port\":%u,\"models\":[%s],\"ambiguous\":%s,\"why\":", static_cast<unsigned>(verdict.port),
               Join(models, ",").c_str(), models.size() > 1 ? "true" : "false") +
        JsonText(verdict.why) + ",\"settled_by\":" + JsonText(verdict.settle) +
        Format(",\"frames\":%llu,\"incomplete_frames\":%llu,\"merged_frames\":%llu", Count(frames.Frames()),
               Count(frames.incomplete), Count(frames.merged)) +
        Format(",\"frame_ends\":%llu,\"frames_per_second\":%.3f,\"fewest_packets\":%llu,"
               "\"most_packets\":%llu}",
               Count(frames.ends.count), frames.ends.Rate(), Count(frames.fewest_packets),
               Count(frames.most_packets)));
  }
  return json + ",\"sensors\":[" + Join(items, ",") + "]}\n";
}

bool GivesFrames(const Survey& survey) {
  return survey.supported && !Judge(survey).empty();
}

std::vector<std::string> WhatIsLost(const Survey& survey) {
  std::vector<std::string> lines;
  for (const Skip skip : {Skip::kCut, Skip::kVlan, Skip::kIpv6, Skip::kFragment}) {
    const auto i = static_cast<size_t>(skip);
    if (survey.skipped[i] == 0) continue;
    lines.push_back("the driver cannot read " + Counted(survey.skipped[i], "record", "records") + ": " +
                    kSkipTexts[i].text);
  }
  return lines;
}

std::string WhyNothing(const Survey& survey, uint16_t port) {
  std::string text = "the driver gets no frame out of " + survey.path;
  text += port == 0
              ? ":\n"
              : Format(": nothing that it reads was sent to UDP port %u.\n", static_cast<unsigned>(port));
  if (!survey.supported) text += "- it does not read the link type " + survey.link_name + "\n";
  for (size_t i = 0; i < kSkips; ++i) {
    if (survey.skipped[i] > 0) {
      text += Format("- %llu records: ", Count(survey.skipped[i])) + kSkipTexts[i].text + "\n";
    }
  }
  for (const Verdict& verdict : Judge(survey)) {
    text += Format("- %llu packets of a sensor (", Count(verdict.stream->packets.count)) +
            Join(verdict.models, " or ") +
            Format(") were sent to port %u: give that with --port\n", static_cast<unsigned>(verdict.port));
  }
  const uint64_t others = Packets(survey, false, false) + Packets(survey, true, false) + survey.unlisted;
  if (others > 0) text += Format("- %llu UDP packets are no sensor's\n", Count(others));
  if (survey.records.count == 0) text += "- it holds no record\n";
  return text + "'orva info " + ShellWord(survey.path) +
         "' tells more; 'orva extract' can put much of it right.";
}

}  // namespace orva
