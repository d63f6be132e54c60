// SPDX-License-Identifier: Apache-2.0
#include "captures/survey.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

#include "captures/capture_check.h"
#include "captures/ip_headers.h"
#include "decoder/decoder_nv2.h"
#include "decoder/decoder_ts4a.h"
#include "decoder/decoder_ts4b.h"
#include "decoder/decoder_ts6.h"
#include "decoder/frame_marker.h"
#include "input/link_header.h"
#include "input/record_time.h"
#include "shared/failure.h"

namespace orva {
namespace {

using tevoro::lidar::FindFrameEnd;
using tevoro::lidar::OrvaTS4BMsopBlock;
using tevoro::lidar::OrvaTS6MsopBlock;
using Ts4a = tevoro::lidar::TS4AModel;
using Nv2 = tevoro::lidar::NV2Model;

constexpr auto kTs4b = tevoro::lidar::TS4BModel::kConst;
constexpr auto kTs6 = tevoro::lidar::TS6Model::kConst;
constexpr auto kLineModels = tevoro::lidar::kLinePacketConstants;

/// A scan over all ports would otherwise fill the memory. Kinds that a sensor sends have room of their own.
constexpr size_t kMostStreams = 256;
constexpr uint64_t kRecordsPerStep = 4096;  ///< of the progress
constexpr size_t kReadAhead = 65'536;  ///< the C library's own 4 KB are a system call for every three packets
/// The driver's packet buffers hold no more.
constexpr size_t kLongestPayload = 1546;

constexpr size_t kGrid = 192 * 128;  ///< measurements of a TS4A, TS4B or TS6 in a frame
constexpr uint64_t kLines = 56;      ///< packets of an NV2 in a frame

constexpr uint8_t kIpv6Fragment = 44;

/// A record's payload, or why there is none for the driver.
struct Payload {
  std::optional<Skip> skip;
  Sender sender{};
  const uint8_t* data = nullptr;
  size_t length = 0;
};

/// What the IP header at `ip` says against a whole UDP datagram behind it.
std::optional<Skip> CheckIp(const uint8_t* ip, size_t captured, bool ethernet) {
  switch (captured == 0 ? 0 : ip[0] >> 4) {
    case 4:
      if (captured < kIpv4Header) return Skip::kMalformed;
      if (((ip[6] & 0x3F) | ip[7]) != 0) return Skip::kFragment;
      if (ip[9] != kUdp) return Skip::kOtherProtocol;
      return std::nullopt;
    case 6:
      if (captured < kIpv6Header) return Skip::kMalformed;
      if (ip[6] == kIpv6Fragment) return Skip::kFragment;
      if (ip[6] != kUdp) return Skip::kOtherProtocol;
      // The driver takes 42 bytes of headers for granted there.
      if (ethernet) return Skip::kIpv6;
      return std::nullopt;
    default:
      return Skip::kNoIp;
  }
}

Payload FindPayload(int link_type, const pcap_pkthdr& header, const uint8_t* record) {
  const size_t captured = std::min(header.caplen, header.len);
  const size_t link = *tevoro::lidar::LinkHeaderLength(link_type);
  if (const auto type = tevoro::lidar::EtherType(link_type, record, captured)) {
    if (IsVlan(*type)) return {.skip = Skip::kVlan};
    if (*type != kIpv4 && *type != kIpv6) return {.skip = Skip::kNoIp};
  }
  const bool cut = header.caplen < header.len;
  const auto too_short = cut ? Skip::kCut : Skip::kMalformed;
  if (captured <= link) return {.skip = too_short};
  const auto problem = CheckIp(record + link, captured - link, link_type == DLT_EN10MB);
  if (problem) return {.skip = *problem == Skip::kMalformed ? too_short : *problem};
  const auto offset = tevoro::lidar::PayloadOffset(link_type, record, captured);
  if (!offset || cut) return {.skip = too_short};

  const size_t length = header.len - *offset;
  if (length == 0) return {.skip = Skip::kEmpty};
  if (length > kLongestPayload) return {.skip = Skip::kTooLong};
  const uint8_t* udp = record + *offset - kUdpHeader;
  Sender sender = {.port = static_cast<uint16_t>(udp[2] << 8 | udp[3])};
  const uint8_t* ip = record + link;
  if (ip[0] >> 4 == 4) std::copy_n(ip + kIpv4Source, sender.address.size(), sender.address.begin());
  return {.skip = {}, .sender = sender, .data = record + *offset, .length = length};
}

/// Do the blocks carry codes of the grid, nearly all of them different? Idle bytes repeat themselves.
bool LooksLikeGrid(const uint8_t* packet, size_t first, size_t stride, size_t blocks) {
  std::array<uint16_t, 64> codes{};
  blocks = std::min(blocks, codes.size());
  for (size_t k = 0; k < blocks; ++k) {
    const uint8_t* block = packet + first + stride * k;
    if (block[0] > tevoro::lidar::kLastColumn || block[1] > tevoro::lidar::kLastLine) return false;
    codes[k] = static_cast<uint16_t>(block[1] << 8 | block[0]);
  }
  const auto end = codes.begin() + static_cast<std::ptrdiff_t>(blocks);
  std::sort(codes.begin(), end);
  return static_cast<size_t>(std::unique(codes.begin(), end) - codes.begin()) * 4 > blocks * 3;
}

void LookForFrames(Stream& stream, const uint8_t* packet, size_t length, int64_t time) {
  uint16_t after = 0;
  const auto look = [&](FrameEnds& frames, size_t first, size_t stride, uint16_t blocks) {
    frames.whole_frame = kGrid / blocks;
    const bool ends = FindFrameEnd(packet, first, stride, blocks, after);
    frames.Packet(time, ends, ends && after < blocks);
  };
  if (length == kTs4b.MSOP_LEN) {
    using Block = OrvaTS4BMsopBlock;
    look(stream.primary, Block::kFirst, Block::kStride, kTs4b.BLOCKS_PER_PKT);
    look(stream.as_ts4a, Ts4a::kFirstBlock, Ts4a::kBlockStride, kTs4b.BLOCKS_PER_PKT);
    stream.looks_like_primary += LooksLikeGrid(packet, Block::kFirst, Block::kStride, kTs4b.BLOCKS_PER_PKT);
    stream.looks_like_ts4a +=
        LooksLikeGrid(packet, Ts4a::kFirstBlock, Ts4a::kBlockStride, kTs4b.BLOCKS_PER_PKT);
  } else if (length == kTs6.MSOP_LEN) {
    using Block = OrvaTS6MsopBlock;
    look(stream.primary, Block::kFirst, Block::kStride, kTs6.BLOCKS_PER_PKT);
    stream.looks_like_primary += LooksLikeGrid(packet, Block::kFirst, Block::kStride, kTs6.BLOCKS_PER_PKT);
  } else {
    const auto line = static_cast<uint8_t>(Nv2::Line::Read(packet));
    const bool started = stream.packets.count > 1;
    // The packet that shows a frame end belongs to the frame before it, whole.
    stream.primary.whole_frame = kLines;
    stream.primary.Packet(time, started && line < stream.previous_line, false);
    stream.looks_like_primary += line < kLineModels.LASER_NUM && (!started || line != stream.previous_line);
    stream.previous_line = line;
  }
}

void AddPayload(Survey& survey, const Payload& payload, int64_t time) {
  const auto& id = kTs4b.MSOP_ID;  // every model's
  const bool is_sensors =
      payload.length >= sizeof(id) && std::equal(std::begin(id), std::end(id), payload.data);
  const bool is_packet = is_sensors && IsModelLength(payload.length);
  const StreamKind kind = {payload.sender.port, payload.length, is_sensors};
  auto found = survey.streams.find(kind);
  if (found == survey.streams.end()) {
    if (survey.streams.size() >= (is_packet ? 2 * kMostStreams : kMostStreams)) {
      ++survey.unlisted;
      return;
    }
    found = survey.streams.emplace(kind, Stream{}).first;
    std::copy_n(payload.data, std::min<size_t>(payload.length, 8), found->second.first_bytes.begin());
  }
  Stream& stream = found->second;
  stream.packets.Add(time);
  if (is_packet && (survey.senders.size() < kMostStreams || survey.senders.contains(payload.sender))) {
    ++survey.senders[payload.sender];
  }
  if (is_packet) LookForFrames(stream, payload.data, payload.length, time);
}

/// A pcapng may name any 64-bit time.
int64_t MicrosecondsOf(const timeval& time, bool is_pcapng) {
  constexpr int64_t kLatest = 1'000'000'000'000;
  return std::clamp<int64_t>(tevoro::lidar::SecondsOf(time, is_pcapng), 0, kLatest) * 1'000'000 +
         std::clamp<int64_t>(time.tv_usec, 0, 999'999);
}

struct CloseCapture {
  void operator()(pcap_t* handle) const { pcap_close(handle); }
};

}  // namespace

void Timeline::Add(int64_t time) {
  if (count++ == 0) {
    first = last = time;
    return;
  }
  const int64_t gap = time - last;
  if (gap > longest_gap) {
    longest_gap = gap;
    longest_gap_at = last;
  }
  pauses += gap > kPause;
  steps_back += gap < 0;
  last = time;
}

double Timeline::Rate() const {
  return last > first ? static_cast<double>(count - 1) * 1e6 / static_cast<double>(last - first) : 0.0;
}

void FrameEnds::Packet(int64_t time, bool ends_frame, bool measures_after) {
  ++packets_since;
  measures_on = !ends_frame || measures_after;
  if (!ends_frame) return;
  if (ends.count > 0) {
    incomplete += packets_since < whole_frame;
    merged += whole_frame > 0 && packets_since > whole_frame;
    fewest_packets = fewest_packets == 0 ? packets_since : std::min(fewest_packets, packets_since);
    most_packets = std::max(most_packets, packets_since);
  }
  packets_since = 0;
  ends.Add(time);
}

bool IsModelLength(size_t length) {
  return length == kTs4b.MSOP_LEN || length == kTs6.MSOP_LEN || length == kLineModels.MSOP_LEN;
}

Survey SurveyCapture(const std::string& path, const SurveyProgress& progress) {
  CheckCapture(path);
  std::error_code no_size;
  const auto size = static_cast<double>(std::filesystem::file_size(path, no_size));
  std::vector<char> buffer(kReadAhead);  // outlives the capture
  RecordingFile file = OpenRecordingFile(path);
  std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
  char error[PCAP_ERRBUF_SIZE] = "";
  const std::unique_ptr<pcap_t, CloseCapture> capture(pcap_fopen_offline(file.get(), error));
  if (capture == nullptr) {
    throw Failure(path + " cannot be read as a capture: " + error + ". Record it again.");
  }
  static_cast<void>(file.release());  // closed with the capture

  Survey survey;
  survey.path = path;
  survey.link_type = pcap_datalink(capture.get());
  const char* name = pcap_datalink_val_to_description(survey.link_type);
  survey.link_name = name != nullptr ? name : "unknown";
  survey.supported = tevoro::lidar::LinkHeaderLength(survey.link_type).has_value();
  survey.is_pcapng = tevoro::lidar::IsPcapng(capture.get());

  pcap_pkthdr* header = nullptr;
  const u_char* record = nullptr;
  int result = 0;
  while ((result = pcap_next_ex(capture.get(), &header, &record)) == 1) {
    const int64_t time = MicrosecondsOf(header->ts, survey.is_pcapng);
    survey.records.Add(time);
    if (survey.records.count % kRecordsPerStep == 0 &&
        !progress(no_size ? 0.0 : static_cast<double>(std::ftell(pcap_file(capture.get()))) / size)) {
      throw Failure("interrupted while reading the recording; nothing was written.");
    }
    if (!survey.supported) continue;
    const Payload payload = FindPayload(survey.link_type, *header, record);
    if (payload.skip) {
      ++survey.skipped[static_cast<size_t>(*payload.skip)];
    } else {
      AddPayload(survey, payload, time);
    }
  }
  if (result != PCAP_ERROR_BREAK) survey.damage = pcap_geterr(capture.get());
  return survey;
}

}  // namespace orva
