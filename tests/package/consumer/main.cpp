// SPDX-License-Identifier: Apache-2.0
// An application as a stranger would write it, built outside the tree against an installed copy.
#include <orva_driver.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

template <typename T>
class CountingCloud : public PointCloud<T> {
 public:
  void PushPoint(const T& point) override {
    ++pushed;
    PointCloud<T>::PushPoint(point);
  }
  int pushed = 0;
};

/// Everything of the facade is called once, so that each symbol must be in the library.
template <typename T>
bool Works() {
  using Cloud = PointCloud<T>;
  OrvaDriver<Cloud> driver;
  driver.RegisterPointCloudCallBack([](std::shared_ptr<Cloud>) {},
                                    [] { return std::make_shared<CountingCloud<T>>(); });
  driver.RegisterImuCallBack([](std::shared_ptr<ImuMsg>) {}, [] { return std::make_shared<ImuMsg>(); });
  driver.RegisterExceptionCallBack([](const Error&) {});
  DriverParam param;
  param.input_type = PCAP;
  param.lidar_type = TS4B;
  param.input_param.pcap_path = "no such file";
  int frames = -7;
  const bool refused = !driver.InitDriver(param) && !driver.Start() && !driver.GetLocalFileStatus(frames) &&
                       frames == -7 && !driver.SetLocalFrame(0);
  driver.Stop();
  CountingCloud<T> cloud;
  cloud.PushPoint(T{});
  return refused && cloud.pushed == 1 && cloud.points.size() == 1;
}

}  // namespace

int main() {
  const bool works = Works<Point>() && Works<PointTime>() && Works<PointSource>();
  std::printf("orva_driver %s %s\n", ORVA_DRIVER_VERSION_STRING, works ? "works" : "FAILS");
  return works ? 0 : 1;
}
