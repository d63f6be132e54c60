// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "commands/commands.h"
#include "formats/frame_export.h"
#include "formats/output_file.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/numbers.h"
#include "shared/words.h"
#include "sim/calibration_server.h"
#include "sim/capture_writer.h"
#include "sim/live_sensor.h"
#include "sim/sensor.h"

namespace orva {
namespace {

constexpr uint64_t kDefaultFrames = 20;

struct SimulateOptions {
  sim::SensorConfig sensor;
  sim::CaptureOptions capture;
  std::string file;
  std::string calibration_folder;
  bool live = false;
  std::string address = "127.0.0.1";
  uint16_t command_port = 6690;
  sim::StreamFaults stream_faults;
  sim::ReplyFaults reply_faults;
  int late_ms = 0;
  Existing existing = Existing::kKeep;
};

void Record(const SimulateOptions& options) {
  sim::Sensor sensor(options.sensor);
  const sim::Model& model = sensor.GetModel();
  RefuseExisting(options.file, options.existing);
  std::string folder;
  if (model.has_calibration) {
    folder = options.calibration_folder;
    if (folder.empty()) folder = std::filesystem::path(options.file).replace_extension("calib").string();
    for (const char* name : {"azimuth.csv", "elevation.csv", "weight.csv", "near_filter.csv"}) {
      RefuseExisting(std::filesystem::path(folder) / name, options.existing);
    }
    sim::WriteCalibrationFolder(sensor.GetCalibration(), model, folder);
  }
  const auto parent = std::filesystem::path(options.file).parent_path();
  if (!parent.empty()) MakeFolder(parent);
  sim::CaptureWriter writer(options.file, options.capture);
  sim::TimedPacket packet;
  uint64_t packets = 0;
  while (sensor.Next(packet)) {
    if (Interrupted()) throw Failure("interrupted; no recording was kept");
    writer.Write(packet);
    ++packets;
  }
  writer.Finish();

  std::fprintf(stderr, "Simulated %s in the scene '%s': %llu frames, %llu packets, %.1f s, unit %llu.\n",
               model.name, options.sensor.scene.c_str(),
               static_cast<unsigned long long>(options.sensor.frames),
               static_cast<unsigned long long>(packets),
               static_cast<double>(options.sensor.frames) / options.sensor.rate,
               static_cast<unsigned long long>(options.sensor.seed));
  std::fprintf(stderr, "  recording    %s\n", options.file.c_str());
  if (folder.empty()) {
    std::fprintf(stderr, "  calibration  none, %s works without\n", model.name);
  } else {
    std::fprintf(stderr, "  calibration  %s\n", folder.c_str());
  }
  std::string command = "orva replay " + ShellWord(options.file) + " --model " + model.name + " --port " +
                        std::to_string(options.capture.destination_port);
  if (!folder.empty()) command += " --calib " + ShellWord(folder);
  std::fprintf(stderr, "Next: %s\n", command.c_str());
}

void Stream(const SimulateOptions& options) {
  sim::SensorConfig config = options.sensor;
  config.start_ns = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
  auto sensor = std::make_unique<sim::Sensor>(config);
  const sim::Model& model = sensor->GetModel();
  const sim::CalibrationServer server(sim::MakeCalibrationStream(sensor->GetCalibration(), model), "0.0.0.0",
                                      options.command_port, options.reply_faults);
  const uint16_t port = options.capture.destination_port;
  const sim::LiveSensor live(std::move(sensor), options.address, port, options.stream_faults);
  std::fprintf(stderr, "Streaming %s to %s port %u at %g frames/s, command port %u. Ctrl-C ends it.\n",
               model.name, options.address.c_str(), port, config.rate, server.Port());
  std::fprintf(stderr, "In another terminal: orva live --model %s --port %u%s\n", model.name, port,
               model.has_calibration
                   ? (" --sensor 127.0.0.1 --command-port " + std::to_string(server.Port())).c_str()
                   : "");
  while (!live.Done() && !Interrupted()) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const sim::StreamCounts counts = live.Counts();
  std::fprintf(stderr,
               "Sent %llu packets, %llu not taken by the system, %llu disturbed, %zu calibration requests.\n",
               static_cast<unsigned long long>(counts.sent), static_cast<unsigned long long>(counts.refused),
               static_cast<unsigned long long>(counts.disturbed), server.Requests().size());
}

void Simulate(SimulateOptions& options) {
  if (options.live != options.file.empty()) {
    throw WrongUsage(options.live ? "--live sends packets and writes no file: leave FILE out"
                                  : "name the recording to write, or say --live");
  }
  if (!options.live && options.sensor.frames == 0) {
    options.sensor.frames = kDefaultFrames;
  }
  options.reply_faults.late = std::chrono::milliseconds(options.late_ms);
  CatchInterrupts();
  try {
    options.live ? Stream(options) : Record(options);
  } catch (const std::invalid_argument& error) {
    throw WrongUsage(error.what());
  }
}

void AddFaultOptions(CLI::App& command, SimulateOptions& options) {
  constexpr const char* kGroup = "Misbehaviour (with --live)";
  CLI::Option* live = command.get_option("--live");
  const auto share = [&](const char* name, double& value, const char* help) {
    AddNumber(command, name, value, 0.0, 1.0, help)->needs(live)->type_name("SHARE")->group(kGroup);
  };
  share("--drop", options.stream_faults.drop, "Packets that get lost");
  share("--duplicate", options.stream_faults.duplicate, "Packets that are sent twice");
  share("--reorder", options.stream_faults.reorder, "Packets that change places with the next");
  share("--corrupt", options.stream_faults.corrupt, "Packets with a byte changed, half in its ID");
  share("--wrong-length", options.stream_faults.wrong_length, "Packets with a byte too many or too few");
  share("--garble-replies", options.reply_faults.garbled, "Calibration replies that are random bytes");
  command.add_flag("--silent", options.reply_faults.silent, "Never answer a calibration request")
      ->needs(live)
      ->group(kGroup);
  AddNumber(command, "--late-replies", options.late_ms, 0, 10000, "Pause before each calibration reply")
      ->needs(live)
      ->type_name("MS")
      ->group(kGroup);
  AddNumber(command, "--repeat-replies", options.reply_faults.repeats, 0, 100,
            "Further copies of each calibration reply")
      ->needs(live)
      ->group(kGroup);
}

}  // namespace

void AddSimulate(CLI::App& app) {
  CLI::App* command = app.add_subcommand("simulate", "Record or stream a simulated sensor");
  auto options = std::make_shared<SimulateOptions>();
  sim::SensorConfig& sensor = options->sensor;
  const std::map<std::string, sim::Framing> framings{{"ethernet", sim::Framing::kEthernet},
                                                     {"cooked", sim::Framing::kLinuxCooked},
                                                     {"cooked2", sim::Framing::kLinuxCookedV2},
                                                     {"raw", sim::Framing::kRawIp},
                                                     {"loopback", sim::Framing::kLoopback}};

  command->add_option("FILE", options->file, "The recording to write, a pcap file");
  AddModelOption(*command, sensor.model);
  command->add_option("--scene", sensor.scene, "What stands around: street, room or wall")
      ->check(CLI::IsMember(sim::SceneNames()))
      ->capture_default_str()
      ->type_name("NAME");
  CLI::Option* live =
      command->add_flag("--live", options->live, "Send the packets, and answer calibration requests");
  AddNumber(*command, "--frames", sensor.frames, 1, kMostCounted, "Frames; default: 20, endless with --live");
  const auto number = [command](const char* name, auto& value, auto least, auto most, const char* help) {
    return AddNumber(*command, name, value, least, most, help)->default_str(NumberText(value));
  };
  number("--seed", sensor.seed, 0U, 4'294'967'295U, "Unit number; varies street and noise too");
  number("--rate", sensor.rate, 0.1, 100.0, "Frames per second")->type_name("HZ");
  number("--noise", sensor.noise, 0.0, 100.0, "Standard deviation of a distance, metres")->type_name("M");
  number("--dropout", sensor.dropout, 0.0, 1.0, "Share of the echoes that get lost")->type_name("SHARE");
  number("--phase", sensor.grid_phase, 0U, 24575U, "Blocks missing at the start; moves the marker");
  number("--port", options->capture.destination_port, uint16_t{1}, uint16_t{65535},
         "UDP port that the packets go to");
  command->add_option("--calib", options->calibration_folder, "Calibration folder; default: FILE with .calib")
      ->excludes(live)
      ->type_name("FOLDER");
  command->add_option("--framing", options->capture.framing, "How the recording frames its packets")
      ->transform(CLI::CheckedTransformer(framings).description(""))
      ->excludes(live)
      ->type_name("ethernet|cooked|cooked2|raw|loopback");
  command->add_flag("--nanoseconds", options->capture.nanoseconds, "Record times to the nanosecond")
      ->excludes(live);
  command->add_flag("--ip-options", options->capture.ip_options, "Give each packet IPv4 options")
      ->excludes(live);
  AddForceOption(*command, options->existing);
  command->add_option("--to", options->address, "With --live: IPv4 address that the packets go to")
      ->capture_default_str()
      ->needs(live)
      ->type_name("ADDRESS");
  number("--command-port", options->command_port, uint16_t{0}, uint16_t{65535},
         "With --live: UDP port for calibration requests")
      ->needs(live);
  AddFaultOptions(*command, *options);
  command->callback([options] { Simulate(*options); });
}

}  // namespace orva
