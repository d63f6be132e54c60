// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "captures/extraction.h"
#include "commands/commands.h"
#include "formats/output_file.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/terminal.h"
#include "shared/words.h"

namespace orva {
namespace {

constexpr const char* kExtractExamples =
    "IN is a pcap or pcapng file, also compressed by gzip or zstd; - is standard\n"
    "input. Several are merged by time. OUT is a pcap file that the driver reads: VLAN\n"
    "tags are stripped and IP fragments put together, payloads and times stay.\n"
    "Frames are counted from 0, for each sender and port from the first packet.\n"
    "Examples:\n"
    "  orva extract vlan.pcapng.gz plain.pcap\n"
    "  orva extract drive.pcap turn.pcap --port 6699 --from 60 --to 75.5\n"
    "  orva extract drive.pcap ten.pcap --model TS4B --frames 100-109\n"
    "  orva extract left.pcap right.pcap both.pcap\n"
    "  orva extract both.pcap sensor.pcap --split-by source\n"
    "      writes sensor_192.168.1.10.pcap and so on\n"
    "  ssh car tcpdump -i any -w - udp | orva extract - drive.pcap\n";

struct ExtractOptions {
  std::vector<std::string> paths;  ///< inputs, then the output
  Selection selection;
  LidarType model = static_cast<LidarType>(0);
  std::string frames;
  std::string split_by;
  bool force = false;
};

/// "7", "3-7" or "20-".
FramesOfPacket ParseFrames(const std::string& text) {
  FramesOfPacket frames;
  const char* const end = text.data() + text.size();
  auto [at, error] = std::from_chars(text.data(), end, frames.first);
  frames.last = frames.first;
  bool good = error == std::errc();
  if (good && at != end && *at == '-') {
    ++at;
    frames.last = std::numeric_limits<uint64_t>::max();
    if (at != end) {
      const auto last = std::from_chars(at, end, frames.last);
      good = last.ec == std::errc();
      at = last.ptr;
    }
  }
  if (!good || at != end || frames.last < frames.first) {
    throw WrongUsage("'" + text + "' is no range of frames. Write it as in --frames 3-7, or 20- to the end");
  }
  return frames;
}

void RunExtract(ExtractOptions& options) {
  if (options.paths.size() < 2) {
    throw WrongUsage(
        "extract needs the recording and the file to write, as in 'orva extract in.pcap out.pcap'");
  }
  const std::string output = options.paths.back();
  const std::vector<std::string> inputs(options.paths.begin(), options.paths.end() - 1);
  Selection& selection = options.selection;
  if (!options.frames.empty()) {
    selection.frames = ParseFrames(options.frames);
    selection.model = options.model;
    static_cast<void>(FrameCounter(options.model));  // refuses a model without frame ends at once
  }
  const bool split = !options.split_by.empty();
  const Existing existing = options.force ? Existing::kReplace : Existing::kKeep;
  if (!split) RefuseExisting(output, existing);
  CatchInterrupts();
  ExtractedFiles files(output, split);
  const Extraction result = Extract(inputs, selection, [&files](const Datagram& datagram) {
    files.Write(datagram);
    return true;
  });
  if (Interrupted()) throw Failure("interrupted; nothing was written.");
  Report(result);
  uint64_t packets = 0;
  for (const ExtractedFiles::File& file : files.files()) packets += file.packets;
  if (packets == 0) {
    throw Failure("nothing was taken, and no file written. 'orva info' tells what the recording holds.");
  }
  if (split) {
    for (const ExtractedFiles::File& file : files.files()) RefuseExisting(file.path, existing);
  }
  files.Finish();
  for (const ExtractedFiles::File& file : files.files()) {
    Say(Counted(file.packets, "packet is", "packets are") + " in " + file.path);
  }
}

}  // namespace

void AddExtract(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("extract", "Make a recording that the driver reads of any, and cut it");
  const auto options = std::make_shared<ExtractOptions>();
  Selection& selection = options->selection;
  command->add_option("IN... OUT", options->paths, "The recordings to read, and at last the one to write")
      ->required()
      ->type_name("FILE");
  AddSenderOptions(*command, selection);
  AddTimeWindow(*command, selection.window, "--to,--until");
  CLI::Option* model = AddModelOption(*command, options->model);
  model->description("Sensor model, for --frames");
  CLI::Option* frames =
      command->add_option("--frames", options->frames, "Only these frames, as in 3-7 or 20-")
          ->type_name("A-B");
  frames->needs(model);
  model->needs(frames);
  command->add_option("--split-by", options->split_by, "A file for each sender")
      ->check(CLI::IsMember({"source"}))
      ->type_name("source");
  command->add_flag("--force", options->force, "Replace a file that exists");
  command->footer(kExtractExamples);
  command->callback([options] { RunExtract(*options); });
}

}  // namespace orva
