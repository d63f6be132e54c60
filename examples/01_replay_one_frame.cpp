// SPDX-License-Identifier: Apache-2.0
// Replays the first frame of a TS4B recording: 01_replay_one_frame RECORDING CALIBRATION_FOLDER
#include <orva_driver.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::atomic<bool> done{false};
  OrvaDriver<PointCloud<Point>> driver;
  driver.RegisterPointCloudCallBack(
      [&done](std::shared_ptr<PointCloud<Point>> cloud) {  // runs on the driver's thread
        std::printf("a frame of %zu points\n", cloud->points.size());
        done = true;
      },
      [] { return std::make_shared<PointCloud<Point>>(); });

  DriverParam param;
  param.input_type = PCAP;
  param.lidar_type = TS4B;
  param.input_param.pcap_path = argv[1];
  param.calibration_param.calib_folder = argv[2];
  param.decoder_param = {0.0F, 1000.0F, -180.0F, 180.0F, -90.0F, 90.0F};  // let every point pass
  if (!driver.InitDriver(param) || !driver.Start()) return 1;

  const std::chrono::milliseconds pause(5);
  for (int frames = 0; !driver.GetLocalFileStatus(frames);) std::this_thread::sleep_for(pause);
  if (!driver.SetLocalFrame(0)) return 1;
  while (!done) std::this_thread::sleep_for(pause);
}
