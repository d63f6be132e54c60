// SPDX-License-Identifier: Apache-2.0
// Listens to a live TS6 for ten seconds, with its calibration downloaded from the sensor itself:
//   03_live_points_and_imu DATA_PORT SENSOR_IP COMMAND_PORT
#include <orva_driver.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

using Cloud = PointCloud<Point>;

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s DATA_PORT SENSOR_IP COMMAND_PORT\n", argv[0]);
    return 2;
  }
  std::atomic<int> frames{0};
  std::atomic<int> imu_samples{0};
  OrvaDriver<Cloud> driver;
  driver.RegisterPointCloudCallBack([&frames](std::shared_ptr<Cloud>) { ++frames; },
                                    [] { return std::make_shared<Cloud>(); });
  driver.RegisterImuCallBack([&imu_samples](std::shared_ptr<ImuMsg>) { ++imu_samples; },
                             [] { return std::make_shared<ImuMsg>(); });
  driver.RegisterExceptionCallBack([](const Error& error) {
    std::fprintf(stderr, "%s\n",
                 error.error_code == ERROR_MSOP_LENGTH ? "wrong packet length: wrong model?"
                                                       : "not a sensor's packet");
  });

  DriverParam param;
  param.lidar_type = TS6;
  param.input_param.msop_port = static_cast<uint16_t>(std::atoi(argv[1]));
  param.decoder_param = {0.0F, 1000.0F, -180.0F, 180.0F, -90.0F, 90.0F};
  param.calib_from_lidar = true;
  param.calibration_param.lidar_ip = argv[2];
  param.calibration_param.lidar_port = std::atoi(argv[3]);
  if (!driver.InitDriver(param) || !driver.Start()) return 1;

  for (int second = 1; second <= 10; ++second) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    std::printf("%2d s: %d frames, %d IMU samples\n", second, frames.load(), imu_samples.load());
  }
  driver.Stop();
  return frames > 0 ? 0 : 1;
}
