// SPDX-License-Identifier: Apache-2.0
#include "sessions/calibration_download.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string_view>
#include <system_error>
#include <thread>

#include "online/calibration_loader.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/terminal.h"
#include "sim/calibration.h"
#include "sim/model.h"

namespace orva {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using std::chrono::steady_clock;
using tevoro::lidar::CalibrationLoader;
using tevoro::lidar::CheckParam;
using tevoro::lidar::ParamService;
using tevoro::lidar::WorkerThread;

/// Without a further byte of the calibration. A sensor answers within milliseconds, once it is up.
constexpr seconds kPatience{10};
constexpr std::array<std::string_view, 4> kFiles = {"azimuth.csv", "elevation.csv", "weight.csv",
                                                    "near_filter.csv"};

template <size_t N>
std::vector<float> Values(const unsigned char* record, size_t offset) {
  std::vector<float> values(N);
  std::memcpy(values.data(), record + offset, N * sizeof(float));
  return values;
}

sim::Calibration Copy(const CheckParam& record) {
  // The record is packed: its tables must not be taken for aligned floats.
  const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
  constexpr size_t kEntries = sim::Calibration::kEntries;
  sim::Calibration calibration;
  calibration.azimuth = Values<kEntries>(bytes, offsetof(CheckParam, azimuth));
  calibration.elevation = Values<kEntries>(bytes, offsetof(CheckParam, elevation));
  std::memcpy(calibration.weight.data(), bytes + offsetof(CheckParam, weight), sizeof(record.weight));
  std::memcpy(calibration.near_filter.data(), bytes + offsetof(CheckParam, near_filter),
              sizeof(record.near_filter));
  return calibration;
}

sim::Calibration Download(LidarType model, const CalibrationParam& sensor) {
  const std::string where =
      "the sensor " + sensor.lidar_ip + ", command port " + std::to_string(sensor.lidar_port);
  const auto service = std::make_shared<ParamService>();
  CalibrationLoader loader(model, sensor, service);
  if (!loader.Init()) {
    throw Failure(
        "cannot open a local port for commands. Another program may hold it, or --command-host is "
        "none of this machine's addresses ('ip address' lists them).");
  }
  WorkerThread thread("orva-calib");
  if (!thread.Start([&] { loader.Run(thread); })) {
    throw Failure("the system refuses a thread for the download. Close some programs and try again.");
  }
  auto last_progress = steady_clock::now();
  uint64_t received = 0;
  while (!loader.TakeRecord()) {
    if (Interrupted()) throw Failure("interrupted while the calibration was loaded; nothing was recorded.");
    const uint64_t now = loader.ReceivedBytes();
    if (now != received) {
      received = now;
      last_progress = steady_clock::now();
    } else if (steady_clock::now() - last_progress > kPatience) {
      throw Failure(where + (received == 0 ? " does not answer" : " no longer answers") +
                    ". Is it on, and are --sensor and --command-port right? Without them the recording is "
                    "made without its calibration.");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  thread.Stop();
  if (!loader.FilledAll()) throw Failure(where + ", sent a calibration that is not whole. Is --model right?");
  return Copy(*service->GetCheckParam(model));
}

/// Makes room for a folder of ours. One that holds anything else is somebody's, and stays.
void RemoveOwnFolder(const fs::path& folder) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (std::find(kFiles.begin(), kFiles.end(), name) == kFiles.end()) {
      throw Failure(folder.string() + " holds more than a calibration (" + name + "). Move it away first.");
    }
  }
  fs::remove_all(folder, error);
}

void MoveInto(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::rename(from, to, error);
  if (error) throw Failure("cannot write " + to.string() + ": " + error.message() + ".");
}

}  // namespace

void StoreCalibration(LidarType model, const CalibrationParam& sensor, const std::string& folder,
                      Existing existing) {
  if (!TraitsOf(model).uses_calibration) {
    throw WrongUsage(std::string("a ") + TraitsOf(model).name + " has no calibration; leave --sensor away");
  }
  RefuseExisting(folder, existing);
  const sim::Calibration calibration = Download(model, sensor);
  const fs::path part = folder + ".part";
  std::error_code ignored;
  try {
    sim::WriteCalibrationFolder(calibration, sim::FindModel(model), part);
    if (existing == Existing::kReplace) RemoveOwnFolder(folder);
    MoveInto(part, folder);
  } catch (const std::exception& error) {
    fs::remove_all(part, ignored);
    throw Failure(error.what());
  }
  Say("the calibration is in " + folder);
}

}  // namespace orva
