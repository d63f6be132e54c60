// SPDX-License-Identifier: Apache-2.0
// Filters while decoding: a cloud of one's own that keeps only the measurements that returned something.
//   04_own_cloud_type RECORDING CALIBRATION_FOLDER
#include <orva_driver.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

using Cloud = PointCloud<PointSource>;

namespace {

class ReturnsOnly : public Cloud {
 public:
  void PushPoint(const PointSource& point) override {
    ++measured;
    if (point.x != 0.0F || point.y != 0.0F || point.z != 0.0F) Cloud::PushPoint(point);
  }

  std::size_t measured = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::atomic<bool> done{false};
  OrvaDriver<Cloud> driver;
  driver.RegisterPointCloudCallBack(
      [&done](std::shared_ptr<Cloud> cloud) {
        // Every cloud comes from the get callback below, so its type is known.
        const auto& returns = static_cast<const ReturnsOnly&>(*cloud);
        std::printf("kept %zu of %zu measurements\n", returns.points.size(), returns.measured);
        done = true;
      },
      [] { return std::make_shared<ReturnsOnly>(); });

  DriverParam param;
  param.input_type = PCAP;
  param.lidar_type = TS4B;
  param.input_param.pcap_path = argv[1];
  param.calibration_param.calib_folder = argv[2];
  param.decoder_param = {0.5F, 200.0F, -180.0F, 180.0F, -90.0F, 90.0F};
  if (!driver.InitDriver(param) || !driver.Start()) return 1;

  const std::chrono::milliseconds pause(5);
  for (int frames = 0; !driver.GetLocalFileStatus(frames);) std::this_thread::sleep_for(pause);
  if (!driver.SetLocalFrame(0)) return 1;
  while (!done) std::this_thread::sleep_for(pause);
}
