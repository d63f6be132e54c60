// SPDX-License-Identifier: Apache-2.0
#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "captures/packet_batch.h"
#include "captures/record_files.h"
#include "commands/commands.h"
#include "formats/frame_export.h"
#include "formats/output_file.h"
#include "sessions/calibration_download.h"
#include "sessions/calibration_files.h"
#include "sessions/driver_options.h"
#include "sessions/other_listeners.h"
#include "sessions/packet_losses.h"
#include "shared/cloud.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/numbers.h"
#include "shared/service.h"
#include "shared/terminal.h"
#include "shared/words.h"

namespace orva {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kRecordExamples =
    "Every datagram is recorded as it came, also of a wrong length; one of more than\n"
    "1546 bytes is cut there, an empty one left out. Sender and link addresses are not\n"
    "known to the driver: the capture holds zeros and made-up ones.\n"
    "Examples:\n"
    "  orva record --port 6699 drive.pcap\n"
    "  orva record --port 6699 drive.pcap --model TS6 --sensor 192.168.1.200 \\\n"
    "      --command-port 6690\n"
    "      stores the calibration in drive.calib, where 'orva replay drive.pcap' finds it\n"
    "  orva record --port 6699 --rotate-size 500 --keep 20 drive.pcap\n"
    "Ctrl-C ends it, and completes the file.\n";

struct RecordOptions {
  DriverParam param = OpenParam(ONLINE);
  std::string file;
  RotationLimits limits;
  double seconds = 0.0;
  std::uint64_t packets = 0;
  Existing existing = Existing::kKeep;
};

/// A tap on a running driver: hands out the packets as they come, undecoded. Its callback only copies, so
/// that a slow disk never holds up the driver.
class Tap {
 public:
  explicit Tap(const DriverParam& param) {
    // The driver must have clouds to ask for, or it reports their lack frame by frame; none is needed here.
    driver_.RegisterPointCloudCallBack([](std::shared_ptr<Cloud>) {},
                                       [] { return std::shared_ptr<Cloud>(); });
    driver_.RegisterPacketCallBack([this](const std::uint8_t* data, std::size_t length, double received) {
      Put(data, length, received);
    });
    if (!driver_.InitDriver(param)) {
      throw Failure(CannotListen(param));
    }
    if (!driver_.Start()) {
      throw Failure("the system refuses a thread for the driver. Close some programs and try again.");
    }
  }

  /// Exchanges `batch` for what has arrived. Waits until that is worth a write, at most for `patience`.
  void Take(PacketBatch& batch, std::chrono::milliseconds patience) {
    batch.Clear();
    std::unique_lock lock(mutex_);
    enough_.wait_for(lock, patience, [this] { return arrived_.Size() >= kEnough; });
    std::swap(batch, arrived_);
  }

  std::uint64_t Missed() {
    const std::lock_guard lock(mutex_);
    return missed_;
  }
  void Stop() { driver_.Stop(); }
  DriverStatistics Statistics() {
    DriverStatistics statistics;
    driver_.GetStatistics(statistics);
    return statistics;
  }

 private:
  static constexpr std::size_t kEnough = 256 * 1024;
  static constexpr std::size_t kMost = 128 * 1024 * 1024;  ///< bytes; some ten seconds of the fastest sensor

  void Put(const std::uint8_t* data, std::size_t length, double received) {
    const std::lock_guard lock(mutex_);
    const std::size_t before = arrived_.Size();
    if (before + length > kMost) {
      ++missed_;
      return;
    }
    try {
      // A double of today's time tells quarter microseconds apart; the file holds whole ones.
      arrived_.Add(data, length, std::llround(received * 1e6) * 1000);
    } catch (const std::bad_alloc&) {
      ++missed_;
      return;
    }
    if (before < kEnough && arrived_.Size() >= kEnough) {
      enough_.notify_one();
    }
  }

  std::mutex mutex_;
  std::condition_variable enough_;
  PacketBatch arrived_;
  std::uint64_t missed_ = 0;
  OrvaDriver<Cloud> driver_;  ///< last, so that its threads end before what they use goes
};

std::string Losses(const DriverStatistics& statistics, std::uint64_t missed) {
  std::string text = LossText(statistics);
  if (missed > 0) {
    text += (text.empty() ? "" : "; ") + std::to_string(missed) +
            " not stored, the disk is too slow or memory too scarce";
  }
  return text;
}

sim::CaptureOptions CaptureOf(const InputParam& input) {
  sim::CaptureOptions capture;
  capture.keep_unfinished = true;
  capture.source = {};
  capture.destination = {};
  inet_pton(AF_INET, input.host_ip.c_str(), capture.destination.data());
  capture.source_port = 0;
  capture.destination_port = input.msop_port;
  return capture;
}

/// Writes until the end that the options set, or Ctrl-C.
void WriteAll(const RecordOptions& options, Tap& tap, RecordFiles& files) {
  const Clock::time_point start = Clock::now();
  const auto elapsed = [start] { return std::chrono::duration<double>(Clock::now() - start).count(); };
  double last_line = 0.0;
  std::uint64_t packets_before = 0;
  std::uint64_t bytes_before = 0;
  bool over = false;
  // Once a second, in the middle of a batch too: what waited for a slow disk may take it minutes.
  const auto tell = [&] {
    const double now = elapsed();
    if (now - last_line < 1.0) {
      return;
    }
    if (!files.HasFile()) {
      throw std::runtime_error("cannot write " + files.latest() + ": " +
                               std::generic_category().message(ENOENT));
    }
    TellServiceManager(over || Interrupted() ? "EXTEND_TIMEOUT_USEC=30000000" : "WATCHDOG=1");
    std::array<char, 120> text;
    const auto rate = [now, last_line](std::uint64_t count) {
      return static_cast<double>(count) / (now - last_line);
    };
    std::snprintf(text.data(), text.size(), "%4.0f s %8.0f packets/s %6.2f MB/s %10llu packets", now,
                  rate(files.packets() - packets_before), rate(files.payload_bytes() - bytes_before) / 1e6,
                  static_cast<unsigned long long>(files.packets()));
    const std::string losses = Losses(tap.Statistics(), tap.Missed());
    Say(text.data() + (losses.empty() ? "" : "  " + losses));
    last_line = now;
    packets_before = files.packets();
    bytes_before = files.payload_bytes();
  };
  PacketBatch batch;
  sim::TimedPacket packet;
  while (!over) {
    over = Interrupted() || (options.seconds > 0.0 && elapsed() >= options.seconds);
    if (over) {
      tap.Stop();  // what has arrived by then is stored still
    }
    tap.Take(batch, std::chrono::milliseconds(over ? 0 : 20));
    const std::uint8_t* data = batch.bytes.data();
    for (const PacketBatch::Packet& next : batch.packets) {
      packet.payload.assign(data, data + next.length);
      packet.time_ns = next.time_ns;
      data += next.length;
      files.Write(packet);
      if (options.packets > 0 && files.packets() == options.packets) {
        return;
      }
      tell();
    }
    tell();
  }
}

void Record(RecordOptions& options) {
  const bool checked = options.param.lidar_type != static_cast<LidarType>(0);
  if (options.limits.kept > 0 && options.limits.megabytes <= 0.0 && options.limits.seconds <= 0.0) {
    throw WrongUsage("--keep needs --rotate-size or --rotate-time");
  }
  if (!checked) {
    options.param.lidar_type = KR7;  // any model will do to listen
  }
  const auto parent = std::filesystem::path(options.file).parent_path();
  if (!parent.empty()) {
    MakeFolder(parent);
  }
  RefuseEarlierFiles(options.file, options.limits, options.existing);
  if (options.param.calib_from_lidar) {
    CatchInterrupts();
    StoreCalibration(options.param.lidar_type, options.param.calibration_param,
                     CalibrationFolderOf(options.file), options.existing);
    options.param.calib_from_lidar = false;  // the driver that records needs none
  }
  RecordFiles files(options.file, options.limits, CaptureOf(options.param.input_param));
  CatchInterrupts();
  WarnOfOtherListeners(options.param.input_param);
  Tap tap(options.param);
  Say("recording UDP port " + std::to_string(options.param.input_param.msop_port) + " to " + files.latest() +
      "; Ctrl-C ends");
  TellServiceManager("READY=1");
  try {
    WriteAll(options, tap, files);
    files.Finish();
  } catch (const std::exception& error) {
    throw Failure(std::string(error.what()) + ". The recording ends here; " +
                  (files.HasFile()
                       ? "its " + std::to_string(files.packets()) + " packets up to now are whole and kept."
                       : "what that file held is lost."));
  }
  tap.Stop();
  const DriverStatistics statistics = tap.Statistics();
  RequireArrivals(options.param, statistics);
  std::string where = files.latest();
  if (files.files() > 1) {
    where = std::to_string(files.files()) + " files, the last " + where;
  }
  Say(Counted(files.packets(), "packet, ", "packets, ") + std::to_string(files.payload_bytes()) +
      " bytes are in " + where);
  const std::string refused = RefusalText(statistics);
  if (checked && !refused.empty()) {
    Say("Not of " + OneOf(options.param.lidar_type) + ": " + refused +
        (statistics.not_for_us > 0 ? "; the empty ones are not recorded, the others are."
                                   : "; recorded all the same."));
  }
  const std::string losses = Losses(statistics, tap.Missed());
  Say(losses.empty() ? "No packet was lost on this machine." : losses);
}

}  // namespace

void AddRecord(CLI::App& app) {
  CLI::App* command = app.add_subcommand("record", "Record a live sensor's packets to a capture file");
  const auto options = std::make_shared<RecordOptions>();
  command->add_option("FILE", options->file, "The recording to write, a pcap file")->required();
  AddListenOptions(*command, options->param.input_param);
  AddModelOption(*command, options->param.lidar_type)
      ->description("Sensor model: counts packets that are not of it, and records them too");
  AddSensorOptions(*command, options->param)
      ->description("First store this sensor's calibration, in a folder beside FILE")
      ->needs(command->get_option("--model"));
  AddNumber(*command, "--rotate-size", options->limits.megabytes, 0.001, 1e6,
            "Begin a new file before one exceeds so many 10^6 bytes")
      ->type_name("MB");
  AddNumber(*command, "--rotate-time", options->limits.seconds, 0.1, 1e7,
            "Begin a new file after so many seconds")
      ->type_name("S");
  AddNumber(*command, "--keep", options->limits.kept, 1, 1'000'000,
            "Of these files, keep the latest so many");
  AddForceOption(*command, options->existing);
  AddDurationOption(*command, options->seconds);
  AddNumber(*command, "--packets", options->packets, 1, 1'000'000'000'000, "End after so many packets");
  command->footer(kRecordExamples);
  command->callback([options] { Record(*options); });
}

}  // namespace orva
