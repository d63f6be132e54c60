// SPDX-License-Identifier: Apache-2.0
#include "orva_driver.h"

#include "common/cloud_types.h"
#include "common/console.h"
#include "manager/orva_driver_sdk.h"
#include "online/online_manager.h"
#include "pcap/pcap_manager.h"

template <typename PC>
class OrvaDriver<PC>::Impl {
 public:
  Impl() = default;
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    if (manager) manager->Stop();
  }

  bool Init(const DriverParam& param) {
    // The earlier manager goes first: its port and threads are free when the new one starts.
    manager.reset();
    std::shared_ptr<tevoro::lidar::DriverManager<PC>> candidate;
    if (param.input_type == ONLINE) {
      candidate = std::make_shared<tevoro::lidar::OnlineManager<PC>>();
    } else {
      candidate = std::make_shared<tevoro::lidar::PcapManager<PC>>();
    }
    candidate->RegisterPointCloudCallBack(application.put_point_cloud, application.get_point_cloud);
    candidate->RegisterImuCallBack(application.put_imu_msg, application.get_imu_msg);
    candidate->RegisterExceptionCallBack(application.exception);
    candidate->RegisterPacketCallBack(application.packet);
    if (!candidate->Init(param)) return false;
    manager = std::move(candidate);
    return true;
  }

  std::shared_ptr<tevoro::lidar::DriverManager<PC>> manager;
  tevoro::lidar::ApplicationCallbacks<PC> application;
};

template <typename PC>
OrvaDriver<PC>::OrvaDriver() : impl_(std::make_shared<Impl>()) {}

template <typename PC>
OrvaDriver<PC>::~OrvaDriver() = default;

template <typename PC>
void OrvaDriver<PC>::RegisterPointCloudCallBack(const std::function<void(std::shared_ptr<PC>)>& put,
                                                const std::function<std::shared_ptr<PC>()>& get) {
  impl_->application.put_point_cloud = put;
  impl_->application.get_point_cloud = get;
}

template <typename PC>
void OrvaDriver<PC>::RegisterImuCallBack(const std::function<void(std::shared_ptr<ImuMsg>)>& put,
                                         const std::function<std::shared_ptr<ImuMsg>()>& get) {
  impl_->application.put_imu_msg = put;
  impl_->application.get_imu_msg = get;
}

template <typename PC>
void OrvaDriver<PC>::RegisterExceptionCallBack(const std::function<void(const Error&)>& callback) {
  impl_->application.exception = callback;
}

template <typename PC>
void OrvaDriver<PC>::RegisterPacketCallBack(
    const std::function<void(const uint8_t* data, size_t length, double received)>& callback) {
  impl_->application.packet = callback;
}

template <typename PC>
bool OrvaDriver<PC>::InitDriver(const DriverParam& param) {
  return impl_->Init(param);
}

template <typename PC>
bool OrvaDriver<PC>::Start() {
  return impl_->manager && impl_->manager->Start();
}

template <typename PC>
void OrvaDriver<PC>::Stop() {
  if (impl_->manager) impl_->manager->Stop();
}

template <typename PC>
bool OrvaDriver<PC>::GetLocalFileStatus(int& status) {
  return impl_->manager && impl_->manager->GetLocalFileStatus(status);
}

template <typename PC>
bool OrvaDriver<PC>::SetLocalFrame(const int& frame) {
  return impl_->manager && impl_->manager->PlayLocalFileFrame(frame);
}

template <typename PC>
bool OrvaDriver<PC>::GetStatistics(DriverStatistics& statistics) {
  return impl_->manager && impl_->manager->GetStatistics(statistics);
}

void SetOrvaConsole(const std::function<void(const char* line, bool is_error)>& sink) {
  tevoro::lidar::SetConsoleSink(sink);
}

#define ORVA_INSTANTIATE(PC) template class OrvaDriver<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)
