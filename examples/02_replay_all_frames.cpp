// SPDX-License-Identifier: Apache-2.0
// Steps through a whole recording, with limits and a mounting, and prints a line per frame:
//   02_replay_all_frames MODEL RECORDING CALIBRATION_FOLDER      (MODEL: the number of a LidarType, TS4B is
//   33)
#include <orva_driver.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

using Cloud = PointCloud<PointTime>;

namespace {

/// Hands one cloud from the driver's thread to the application's.
class Mailbox {
 public:
  void Put(std::shared_ptr<Cloud> cloud) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      cloud_ = std::move(cloud);
    }
    arrived_.notify_one();
  }

  std::shared_ptr<Cloud> Take() {
    std::unique_lock<std::mutex> lock(mutex_);
    arrived_.wait(lock, [this] { return cloud_ != nullptr; });
    return std::move(cloud_);
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::shared_ptr<Cloud> cloud_;
};

DecoderParam MountedOnARoof() {
  DecoderParam param;
  param.min_distance = 0.5F;  // the roof itself
  param.max_distance = 200.0F;
  param.min_azimuth = -60.0F;
  param.max_azimuth = 60.0F;
  param.min_elevation = -45.0F;
  param.max_elevation = 45.0F;
  param.use_transform = true;
  param.z_offset = 1.8F;
  return param;
}

void PrintFrame(int number, const Cloud& cloud) {
  std::size_t inside = 0;
  for (const PointTime& point : cloud.points) {
    // A rejected point is the exact origin.
    if (point.x != 0.0F || point.y != 0.0F || point.z != 0.0F) ++inside;
  }
  std::printf("frame %3d: %6zu points, %6zu inside the limits, %.1f degrees Celsius\n", number,
              cloud.points.size(), inside, cloud.temperature_a);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s MODEL RECORDING CALIBRATION_FOLDER\n", argv[0]);
    return 2;
  }
  Mailbox mailbox;  // outlives the driver, whose callbacks use it
  OrvaDriver<Cloud> driver;
  driver.RegisterPointCloudCallBack(
      [&mailbox](std::shared_ptr<Cloud> cloud) { mailbox.Put(std::move(cloud)); },
      [] { return std::make_shared<Cloud>(); });
  driver.RegisterExceptionCallBack([](const Error& error) {
    std::fprintf(stderr, "packet fault %d: is the model right?\n", error.error_code);
  });

  DriverParam param;
  param.input_type = PCAP;
  param.lidar_type = static_cast<LidarType>(std::atoi(argv[1]));
  param.input_param.pcap_path = argv[2];
  param.calibration_param.calib_folder = argv[3];
  param.decoder_param = MountedOnARoof();
  if (!driver.InitDriver(param) || !driver.Start()) return 1;

  const std::chrono::milliseconds pause(1);
  int frames = 0;
  while (!driver.GetLocalFileStatus(frames)) std::this_thread::sleep_for(pause);
  for (int frame = 0; frame < frames; ++frame) {
    // The play before ends a moment after its put callback has returned; until then the request is refused.
    while (!driver.SetLocalFrame(frame)) std::this_thread::sleep_for(pause);
    PrintFrame(frame, *mailbox.Take());
  }
}
