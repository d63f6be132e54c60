// SPDX-License-Identifier: Apache-2.0
#include "captures/extraction.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <tuple>
#include <utility>

#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/terminal.h"

namespace orva {
namespace {

namespace fs = std::filesystem;

/// A scan of the network would otherwise open files, or count frames, without end.
constexpr size_t kMostSources = 64;
/// The driver's packet buffers hold no more.
constexpr size_t kLongestPayload = 1546;

sim::CaptureOptions ExactTimes() {
  sim::CaptureOptions options;
  options.nanoseconds = true;
  return options;
}

/// Several captures as one, in the order of their times. Each keeps its own order.
class Merge {
 public:
  explicit Merge(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
      Input input{path, std::make_unique<CaptureReader>(path), {}, {}};
      input.dissector = std::make_unique<Dissector>(input.reader->link_type());
      Advance(input);
      inputs_.push_back(std::move(input));
    }
    if (Input* first = Earliest()) start_ns_ = first->next.time_ns;
  }

  struct Input {
    std::string path;
    std::unique_ptr<CaptureReader> reader;
    std::unique_ptr<Dissector> dissector;
    Record next;
    bool more = false;
  };

  /// The input whose next record is due; null at the end.
  Input* Earliest() {
    Input* earliest = nullptr;
    for (Input& input : inputs_) {
      if (input.more && (earliest == nullptr || input.next.time_ns < earliest->next.time_ns))
        earliest = &input;
    }
    return earliest;
  }
  static void Advance(Input& input) { input.more = input.reader->Next(input.next); }
  int64_t start_ns() const { return start_ns_; }
  std::vector<Input>& inputs() { return inputs_; }

 private:
  std::vector<Input> inputs_;
  int64_t start_ns_ = 0;
};

class Filter {
 public:
  Filter(const Selection& selection, int64_t start_ns) : selection_(selection), start_ns_(start_ns) {}

  /// Why the datagram is left out, or the fate that it has already.
  Fate Judge(const Datagram& datagram) {
    const sim::Endpoints& ends = datagram.endpoints;
    if (selection_.port && ends.destination_port != *selection_.port) return Fate::kOtherPort;
    if (selection_.sensor_port && ends.source_port != *selection_.sensor_port) return Fate::kOtherPort;
    if (selection_.source && ends.source != *selection_.source) return Fate::kOtherSource;
    if (datagram.packet.payload.empty()) return Fate::kEmpty;
    if (datagram.packet.payload.size() > kLongestPayload) return Fate::kTooLong;
    // Frames are counted from the recording's begin, whatever the window.
    const Fate by_frame = selection_.frames ? JudgeFrame(datagram) : datagram.fate;
    return selection_.window.Holds(datagram.packet.time_ns, start_ns_) ? by_frame : Fate::kOtherTime;
  }

 private:
  Fate JudgeFrame(const Datagram& datagram) {
    // A recording may hide the senders' addresses. A sender's port is left out: it may change when a sensor
    // starts anew, and a replay counts on.
    const sim::Endpoints& ends = datagram.endpoints;
    const auto found =
        counters_.try_emplace({ends.source, ends.destination, ends.destination_port}, *selection_.model)
            .first;
    if (counters_.size() > kMostSources) {
      throw Failure(
          "packets come from more than 64 addresses, or go to as many. Choose with --port or --source.");
    }
    const auto frames = found->second.Add(datagram.packet.payload);
    if (!frames) return Fate::kOtherModel;
    const bool wanted = frames->last >= selection_.frames->first && frames->first <= selection_.frames->last;
    return wanted ? datagram.fate : Fate::kOtherFrame;
  }

  const Selection& selection_;
  const int64_t start_ns_;
  using Way = std::tuple<Ipv4Address, Ipv4Address, uint16_t>;  ///< from, to, to the port
  std::map<Way, FrameCounter> counters_;
};

struct FateText {
  Fate fate;
  const char* text;
};
/// What was left out, and why.
constexpr FateText kLeftOut[] = {
    {Fate::kOtherPort, "of another port"},
    {Fate::kOtherSource, "of another sender"},
    {Fate::kOtherTime, "outside --from and --to"},
    {Fate::kOtherModel, "no packets of the model"},
    {Fate::kOtherFrame, "of other frames"},
    {Fate::kIncomplete, "fragments whose datagram never became whole"},
    {Fate::kRepeated, "fragments that were there twice"},
    {Fate::kCut, "cut by a snapshot length (record with tcpdump -s 0)"},
    {Fate::kIpv6, "IPv6"},
    {Fate::kOtherProtocol, "of another protocol than UDP"},
    {Fate::kNoIp, "no IP (ARP and the like)"},
    {Fate::kMalformed, "broken: against their own headers"},
    {Fate::kEmpty, "UDP without payload"},
    {Fate::kTooLong, "payload longer than any sensor's packet"},
};

void Row(uint64_t count, const std::string& text) {
  if (count == 0) return;
  const std::string digits = std::to_string(count);
  Say(std::string(digits.size() < 12 ? 12 - digits.size() : 0, ' ') + digits + "  " + text);
}

}  // namespace

ExtractedFiles::ExtractedFiles(std::string path, bool split_by_source)
    : path_(std::move(path)), split_(split_by_source) {
  if (!split_) outputs_[{}] = {path_, std::make_unique<sim::CaptureWriter>(path_, ExactTimes())};
}

void ExtractedFiles::Write(const Datagram& datagram) {
  Output& output = outputs_[split_ ? datagram.endpoints.source : Ipv4Address{}];
  if (output.writer == nullptr) {
    if (outputs_.size() > kMostSources) {
      throw Failure(
          "packets come from more than 64 addresses, which would be as many files. Choose with --port "
          "or --source.");
    }
    output.path = PathOf(path_, datagram.endpoints.source);
    output.writer = std::make_unique<sim::CaptureWriter>(output.path, ExactTimes());
  }
  output.writer->Write(datagram.packet, datagram.endpoints);
  ++output.packets;
}

void ExtractedFiles::Finish() {
  for (auto& [source, output] : outputs_) output.writer->Finish();
}

std::vector<ExtractedFiles::File> ExtractedFiles::files() const {
  std::vector<File> files;
  for (const auto& [source, output] : outputs_) files.push_back({output.path, output.packets});
  return files;
}

std::string ExtractedFiles::PathOf(const std::string& path, const Ipv4Address& source) {
  char address[20];
  std::snprintf(address, sizeof(address), "_%u.%u.%u.%u", source[0], source[1], source[2], source[3]);
  const fs::path whole(path);
  fs::path name = whole.stem();
  name += address;
  name += whole.extension();
  return whole.parent_path() / name;
}

Extraction Extract(const std::vector<std::string>& inputs, const Selection& selection,
                   const std::function<bool(const Datagram&)>& take) {
  Extraction result;
  Merge merge(inputs);
  Filter filter(selection, merge.start_ns());
  for (Merge::Input* input = nullptr; (input = merge.Earliest()) != nullptr && !Interrupted();
       Merge::Advance(*input)) {
    ++result.records;
    const std::optional<Datagram> datagram = input->dissector->Take(input->next, result.tally);
    if (!datagram) continue;
    const Fate fate = filter.Judge(*datagram);
    result.tally.Add(fate, datagram->records);
    if (fate != datagram->fate) continue;
    result.datagrams_joined += fate == Fate::kJoined;
    if (!take(*datagram)) break;
  }
  for (Merge::Input& input : merge.inputs()) {
    input.dissector->Finish(result.tally);
    if (!input.reader->damage().empty()) {
      result.damage.push_back(input.path + ": " + input.reader->damage());
    }
  }
  return result;
}

void Report(const Extraction& result) {
  const Tally& tally = result.tally;
  Say(std::to_string(result.records) + " records read:");
  Row(tally[Fate::kTaken], "taken");
  Row(tally[Fate::kStripped], "taken without their VLAN tags");
  Row(tally[Fate::kJoined],
      "fragments, joined into " + std::to_string(result.datagrams_joined) + " taken datagrams");
  for (const FateText& reason : kLeftOut) Row(tally[reason.fate], std::string("left out, ") + reason.text);
  for (const std::string& damage : result.damage) {
    Warn(damage + ". What stands before was read; the rest is missing.");
  }
}

}  // namespace orva
