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
#include "formats/output_file.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"
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
};

void Record(const SimulateOptions& options) {
  sim::Sensor sensor(options.sensor);
  const sim::Model& model = sensor.GetModel();
  std::string folder;
  if (model.has_calibration) {
    folder = options.calibration_folder;
    if (folder.empty()) folder = std::filesystem::path(options.file).replace_extension("calib").string();
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

void Simulate(SimulateOptions& options, bool frames_given) {
  if (options.live != options.file.empty()) {
    throw WrongUsage(options.live ? "--live sends packets and writes no file: leave FILE out"
                                  : "name the recording to write, or say --live");
  }
  if (!options.live && options.sensor.frames == 0) {
    if (frames_given) throw WrongUsage("a recording needs at least one frame");
    options.sensor.frames = kDefaultFrames;
  }
  CatchInterrupts();
  try {
    options.live ? Stream(options) : Record(options);
  } catch (const std::invalid_argument& error) {
    throw WrongUsage(error.what());
  }
}

void AddFaultOptions(CLI::App& command, SimulateOptions& options) {
  constexpr const char* kGroup = "Misbehaviour (with --live)";
  const auto share = [&](const char* name, double& value, const char* help) {
    command.add_option(name, value, help)->check(CLI::Range(0.0, 1.0))->type_name("SHARE")->group(kGroup);
  };
  share("--drop", options.stream_faults.drop, "Packets that get lost, 0 to 1");
  share("--duplicate", options.stream_faults.duplicate, "Packets that are sent twice");
  share("--reorder", options.stream_faults.reorder, "Packets that change places with the next");
  share("--corrupt", options.stream_faults.corrupt, "Packets with a byte changed, half in its ID");
  share("--wrong-length", options.stream_faults.wrong_length, "Packets with a byte too many or too few");
  share("--garble-replies", options.reply_faults.garbled, "Calibration replies that are random bytes");
  command.add_flag("--silent", options.reply_faults.silent, "Never answer a calibration request")
      ->group(kGroup);
  command
      .add_option_function<int>(
          "--late-replies", [&options](int ms) { options.reply_faults.late = std::chrono::milliseconds(ms); },
          "Pause before each calibration reply")
      ->check(CLI::Range(0, 10000))
      ->type_name("MS")
      ->group(kGroup);
  command
      .add_option("--repeat-replies", options.reply_faults.repeats,
                  "Further copies of each calibration reply")
      ->check(CLI::Range(0, 100))
      ->type_name("N")
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
  CLI::Option* frames =
      command->add_option("--frames", sensor.frames, "Frames; default: 20, endless with --live")
          ->type_name("N");
  command->add_option("--seed", sensor.seed, "Unit number; varies street and noise too")
      ->capture_default_str()
      ->type_name("N");
  command->add_option("--rate", sensor.rate, "Frames per second")->capture_default_str()->type_name("HZ");
  command->add_option("--noise", sensor.noise, "Standard deviation of a distance, metres")
      ->capture_default_str()
      ->type_name("M");
  command->add_option("--dropout", sensor.dropout, "Share of the echoes that get lost, 0 to 1")
      ->capture_default_str()
      ->type_name("SHARE");
  command->add_option("--phase", sensor.grid_phase, "Blocks missing at the start; moves the marker")
      ->capture_default_str()
      ->type_name("N");
  command->add_option("--port", options->capture.destination_port, "UDP port that the packets go to")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str()
      ->type_name("N");
  command->add_option("--calib", options->calibration_folder, "Calibration folder; default: FILE with .calib")
      ->type_name("FOLDER");
  command->add_option("--framing", options->capture.framing, "How the recording frames its packets")
      ->transform(CLI::CheckedTransformer(framings).description(""))
      ->type_name("ethernet|cooked|cooked2|raw|loopback");
  command->add_flag("--nanoseconds", options->capture.nanoseconds, "Record times to the nanosecond");
  command->add_flag("--ip-options", options->capture.ip_options, "Give each packet IPv4 options");
  command->add_flag("--live", options->live, "Send the packets, and answer calibration requests");
  command->add_option("--to", options->address, "With --live: IPv4 address that the packets go to")
      ->capture_default_str()
      ->type_name("ADDRESS");
  command
      ->add_option("--command-port", options->command_port, "With --live: UDP port for calibration requests")
      ->capture_default_str()
      ->type_name("N");
  AddFaultOptions(*command, *options);
  command->callback([options, frames] { Simulate(*options, frames->count() > 0); });
}

}  // namespace orva
