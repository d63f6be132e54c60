// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "formats/cloud_format.h"
#include "messages/cdr.h"
#include "messages/schemas.h"
#include "shared/failure.h"
#include "shared/models.h"
#ifdef ORVA_WITH_FOXGLOVE
#include "messages/foxglove_cloud.h"
#endif

namespace orva {
namespace {

namespace fs = std::filesystem;

/// A calibration folder holds some megabytes; whatever else lies in it stays out.
constexpr std::uintmax_t kLargestAttachment = 16U << 20;
constexpr std::size_t kMostAttachments = 64;

/// Nanoseconds since the epoch, never 0: readers take that for a message without a time.
std::uint64_t ToLogTime(double seconds) {
  const messages::Time time = messages::ToTime(seconds);
  return std::max<std::uint64_t>(1, static_cast<std::uint64_t>(time.sec) * 1'000'000'000 + time.nanosec);
}

/// What the file says about where it comes from.
struct Origin {
  explicit Origin(const DriverParam& param)
      : model(TraitsOf(param.lidar_type)),
        calibration(param.calib_from_lidar ? "" : param.calibration_param.calib_folder),
        mounted(param.decoder_param.use_transform) {
    if (param.input_type == PCAP) {
      unit = fs::path(param.input_param.pcap_path).filename();
    } else if (param.calib_from_lidar) {
      unit = param.calibration_param.lidar_ip;
    } else {
      unit = "UDP port " + std::to_string(param.input_param.msop_port);
    }
  }
  ModelTraits model;
  std::string unit;         ///< which sensor, or which recording of one
  std::string calibration;  ///< folder whose files are attached; empty: none
  bool mounted;             ///< clouds are in another frame than IMU samples
};

mcap::Options WriterOptions(const McapOptions& options) {
#ifndef ORVA_WITH_FOXGLOVE
  if (options.foxglove) {
    throw WrongUsage("this orva was built without protobuf, so there is no --schema foxglove.");
  }
#endif
  mcap::Options result;
  result.profile = options.foxglove ? "" : "ros2";
  result.library = "orva " ORVA_DRIVER_VERSION_STRING;
  result.compression = options.compression;
  return result;
}

std::string CalibratedText(CalibrationState state, bool calibrates) {
  if (!calibrates) {
    return "not needed";
  }
  return state == CALIBRATION_FROM_FOLDER || state == CALIBRATION_FROM_SENSOR ? "yes" : "no";
}

/// The regular files of a folder and those below it, in the order of their names.
std::vector<fs::path> FilesIn(const std::string& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::recursive_directory_iterator i(folder, error), end; !error && i != end; i.increment(error)) {
    if (i->is_regular_file(error) && i->file_size(error) <= kLargestAttachment) {
      files.push_back(i->path());
    }
  }
  std::sort(files.begin(), files.end());
  files.resize(std::min(files.size(), kMostAttachments));
  return files;
}

/// When it was last written, nanoseconds since the epoch.
std::uint64_t TimeOf(const fs::path& file) {
  std::error_code error;
  const auto time = fs::last_write_time(file, error);
  const auto since = std::chrono::file_clock::to_sys(time).time_since_epoch();
  const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(since).count();
  return error ? 0 : static_cast<std::uint64_t>(std::max<std::int64_t>(0, nanoseconds));
}

/// A recording of ROS 2 messages: /points, /imu/data_raw, /diagnostics. Whole chunks reach the file at once,
/// under its name, and stay when the program ends otherwise than by Commit.
class McapStream : public CloudStream {
 public:
  McapStream(const fs::path& path, const StreamOptions& options, const mcap::Options& writer_options)
      : path_(path),
        options_(options.mcap),
        origin_(options.param),
        imu_frame_(options_.cloud.frame_id + (origin_.mounted ? "_imu" : "")),
        sink_(path),
        writer_(sink_, writer_options),
        points_(AddPoints()),
        imu_(Add(messages::ImuSchema(), "ros2msg", "/imu/data_raw", "cdr")),
        diagnostics_(Add(messages::DiagnosticArraySchema(), "ros2msg", "/diagnostics", "cdr")) {
    Require(writer_.Flush());
    Attach();
  }
  /// Ctrl-C ends a run without Commit: the file is completed as it stands.
  ~McapStream() override {
    MarkUncalibrated();
    writer_.Close();
  }

  void Write(const Cloud& cloud, const FrameInfo& info) override {
    messages::FillPointCloud2(cloud, info.first_packet, options_.cloud, cloud_);
    if (info.uncalibrated) {
      ++uncalibrated_;
      last_uncalibrated_ = ToLogTime(info.last_packet);
    }
#ifdef ORVA_WITH_FOXGLOVE
    if (options_.foxglove) {
      messages::WriteFoxglove(cloud_, bytes_);
      return Store(points_, info.last_packet);
    }
#endif
    messages::WriteCdr(cloud_, bytes_);
    Store(points_, info.last_packet);
  }

  void WriteImu(const ImuMsg& sample, double received) override {
    messages::WriteCdr(messages::ToImu(sample, received, imu_frame_), bytes_);
    Store(imu_, received);
  }

  void WriteStatus(const DriverStatistics& statistics, double now) override {
    if (statistics.calibration != CALIBRATION_DOWNLOADING) {
      Describe(statistics.calibration);
    }
    latest_ = statistics;
    latest_time_ = now;
    if (!status_time_ || std::abs(now - *status_time_) >= 1.0) {
      StoreStatus();
      Require(writer_.Flush());  // at most a second is lost when the tool is killed
    }
  }

  void Commit() override {
    Describe(latest_.calibration);
    if (status_time_ && latest_time_ > *status_time_) {
      StoreStatus();
    }
    Require(MarkUncalibrated());
    Require(writer_.Close());
  }

 private:
  std::uint16_t Add(const messages::Schema& schema, const char* schema_encoding, const char* topic,
                    const char* encoding) {
    return writer_.AddChannel(writer_.AddSchema(schema.name, schema_encoding, schema.text), topic, encoding);
  }

  std::uint16_t AddPoints() {
#ifdef ORVA_WITH_FOXGLOVE
    if (options_.foxglove) {
      return Add(messages::FoxgloveCloudSchema(), "protobuf", "/points", "protobuf");
    }
#endif
    return Add(messages::PointCloud2Schema(), "ros2msg", "/points", "cdr");
  }

  void Attach() {
    if (!origin_.model.uses_calibration || origin_.calibration.empty()) {
      return;
    }
    for (const fs::path& file : FilesIn(origin_.calibration)) {
      std::ifstream stream(file, std::ios::binary);
      const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
      const std::string name = "calibration/" + file.lexically_relative(origin_.calibration).string();
      const std::uint64_t time = TimeOf(file);
      Require(writer_.Attach({name, "text/plain", time, time}, bytes));
    }
  }

  /// Once it is known whether the points are calibrated.
  void Describe(CalibrationState state) {
    if (!described_) {
      described_ = true;
      Require(writer_.AddMetadata("orva",
                                  {{"model", origin_.model.name},
                                   {"unit", origin_.unit},
                                   {"version", ORVA_DRIVER_VERSION_STRING},
                                   {"calibrated", CalibratedText(state, origin_.model.uses_calibration)}}));
    }
  }

  /// At the end: a run may begin before the sensor's calibration has come.
  mcap::Status MarkUncalibrated() {
    const std::uint64_t clouds = std::exchange(uncalibrated_, 0);
    if (clouds == 0) {
      return {};
    }
    return writer_.AddMetadata("uncalibrated", {{"clouds", std::to_string(clouds)},
                                                {"last_log_time", std::to_string(last_uncalibrated_)}});
  }

  void StoreStatus() {
    const double seconds = status_time_ ? latest_time_ - *status_time_ : 0.0;
    const messages::DiagnosticSource source = {std::string("orva: ") + origin_.model.name, origin_.unit};
    messages::WriteCdr(
        messages::ToDiagnostics(latest_, status_before_, seconds, messages::ToTime(latest_time_), source),
        bytes_);
    Store(diagnostics_, latest_time_);
    status_time_ = latest_time_;
    status_before_ = latest_;
  }

  void Store(std::uint16_t channel, double time) {
    const std::uint64_t log_time = ToLogTime(time);
    Require(writer_.Write(channel, log_time, log_time, bytes_));
  }

  void Require(const mcap::Status& status) const {
    if (!status.ok()) {
      std::error_code ignored;
      throw Failure(
          "cannot write " + path_ + ": " + status.text + "." +
          (sink_.size() == 0 || !fs::exists(path_, ignored) ? "" : " What it holds so far can be read.") +
          " Choose another place with --out.");
    }
  }

  const std::string path_;
  const McapOptions options_;
  const Origin origin_;
  const std::string imu_frame_;  ///< IMU samples are in the sensor's frame, also where clouds are mounted
  mcap::FileSink sink_;
  mcap::Writer writer_;
  const std::uint16_t points_;
  const std::uint16_t imu_;
  const std::uint16_t diagnostics_;
  messages::PointCloud2 cloud_;      ///< kept for its memory,
  std::vector<std::uint8_t> bytes_;  ///< as is this
  bool described_ = false;
  std::uint64_t uncalibrated_ = 0;       ///< clouds,
  std::uint64_t last_uncalibrated_ = 0;  ///< and when the last of them was written
  std::optional<double> status_time_;
  DriverStatistics status_before_;
  DriverStatistics latest_;
  double latest_time_ = 0.0;
};

std::unique_ptr<CloudStream> Open(const fs::path& path, const StreamOptions& options) {
  const mcap::Options writer_options = WriterOptions(options.mcap);
  RefuseExisting(path, options.existing);
  return std::make_unique<McapStream>(path, options, writer_options);
}

}  // namespace

const CloudFormat kMcapFormat = {.name = "mcap", .title = "MCAP, messages of ROS 2", .open = Open};

}  // namespace orva
