// SPDX-License-Identifier: Apache-2.0
#include "online/online_manager.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <utility>

#include "common/cloud_types.h"
#include "common/console.h"
#include "common/counter.h"
#include "common/out_of_memory.h"
#include "common/worker_thread.h"
#include "decoder/decoder_factory.h"
#include "input/input_factory.h"
#include "input/input_sock.h"
#include "manager/delivery.h"
#include "manager/folder_calibration.h"
#include "manager/statistics_reading.h"
#include "online/calibration_loader.h"
#include "online/kernel_drops.h"
#include "online/pacing.h"
#include "online/sync_queue.h"
#include "param/param_service.h"

namespace tevoro::lidar {
namespace {

/// Packets that may wait for the decoding thread, 12.7 MB of buffers. A decoder that is further behind starts
/// afresh on current data.
constexpr uint64_t MAX_QUEUED_PACKETS = 8191;

std::atomic<uint32_t> g_load_count{0};  // live managers made in this process

std::string ThreadName(const char* role, uint32_t instance) {
  constexpr size_t kLongestName = 15;  // the system's limit
  return ("orva-" + std::string(role) + "-" + std::to_string(instance)).substr(0, kLongestName);
}

double WallClock() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

template <typename PC>
class OnlineManager<PC>::Impl {
 public:
  explicit Impl(OnlineManager* manager) : application_(manager->application_) {}
  ~Impl() {
    Stop();
    Release();
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  bool Init(const DriverParam& param);
  bool Start();
  void Stop();
  DriverStatistics ReadStatistics() const;

 private:
  bool SetUp();
  void LoadFolder();
  void Release();

  bool StartLoad();
  bool StartRecv();
  bool StartDecoder();
  bool Running() const;
  bool OnOwnThread() const;

  const InputSock* Socket() const { return dynamic_cast<const InputSock*>(input_.get()); }

  void RecvLoop();
  void DecodeLoop();
  std::shared_ptr<Buffer> GetBuffer();

  void SplitIMUFrame();
  void PutImuMsg(std::shared_ptr<ImuMsg> msg);
  std::shared_ptr<ImuMsg> GetImuMsg();

  const ApplicationCallbacks<PC>& application_;
  Delivery<PC> delivery_{application_};
  DriverParam param_;
  std::mutex control_;  ///< the threads are asked to run or to end together; nobody joins under it
  const uint32_t instance_ = ++g_load_count;
  WorkerThread load_thread_{ThreadName("load", instance_)};
  WorkerThread recv_thread_{ThreadName("recv", instance_)};
  WorkerThread decoder_thread_{ThreadName("dec", instance_)};
  std::shared_ptr<Input> input_;
  std::shared_ptr<CalibrationLoader> loader_;  // only with calib_from_lidar
  std::shared_ptr<Decoder<PC>> decoder_;
  std::shared_ptr<ParamService> service_;
  SyncQueue<std::shared_ptr<Buffer>> packet_queue_;  // received, to be decoded
  SyncQueue<std::shared_ptr<Buffer>> free_queue_;    // decoded, to be used again

  // For statistics.
  std::atomic<CalibrationState> calibration_{CALIBRATION_NONE};
  KernelDrops kernel_drops_;
  Counter received_;  // by the receive thread
  Counter received_bytes_;
  Counter recv_out_of_memory_;
  Counter imu_samples_;  // by the decoding thread
  Counter decoder_out_of_memory_;
};

// Set-up

template <typename PC>
bool OnlineManager<PC>::Impl::Init(const DriverParam& param) {
  param_ = param;
  if (!SetUp()) {
    Release();
    return false;
  }
  decoder_->point_cloud_ = delivery_.GetPointCloud();
  decoder_->imu_msg_ = GetImuMsg();
  return true;
}

template <typename PC>
bool OnlineManager<PC>::Impl::SetUp() {
  decoder_ = DecoderFactory<PC>::CreateDecoder(param_.lidar_type, param_.decoder_param);
  if (!decoder_) return false;
  delivery_.Connect(*decoder_);
  decoder_->RegisterIMUCallBack([this] { SplitIMUFrame(); });

  service_ = std::make_shared<ParamService>();
  if (param_.calib_from_lidar) {
    loader_ = std::make_shared<CalibrationLoader>(param_.lidar_type, param_.calibration_param, service_);
    if (!loader_->Init()) return false;
    calibration_ = CALIBRATION_DOWNLOADING;
  } else {
    LoadFolder();
  }

  input_ = InputFactory::CreateInput(param_.input_type, param_.input_param);
  return input_ && input_->Init();
}

template <typename PC>
void OnlineManager<PC>::Impl::LoadFolder() {
  const bool loaded =
      ApplyFolder(param_.lidar_type, param_.calibration_param.calib_folder, *service_, *decoder_);
  PrintLine(loaded ? "LoadCheckFolder success!" : "LoadCheckFolder failed!");
  if (loaded) calibration_ = CALIBRATION_FROM_FOLDER;
}

template <typename PC>
void OnlineManager<PC>::Impl::Release() {
  // The data socket is closed here: an InputSock stays open when it is dropped.
  if (auto* socket = dynamic_cast<InputSock*>(input_.get())) socket->Close();
  decoder_.reset();
  input_.reset();
  loader_.reset();
  service_.reset();
}

// Threads

template <typename PC>
bool OnlineManager<PC>::Impl::Start() {
  {
    const std::lock_guard lock(control_);
    if (Running()) return true;
  }
  if (OnOwnThread()) return false;
  Stop();  // joins those that a callback has asked to end; then no thread is left that could call
  {
    const std::lock_guard lock(control_);
    if ((!param_.calib_from_lidar || StartLoad()) && StartRecv() && StartDecoder()) return true;
  }
  Stop();
  return false;
}

template <typename PC>
void OnlineManager<PC>::Impl::Stop() {
  {
    const std::lock_guard lock(control_);
    load_thread_.RequestStop();
    recv_thread_.RequestStop();
    decoder_thread_.RequestStop();
  }
  if (OnOwnThread()) return;  // in a callback: whoever comes next from outside joins
  load_thread_.Stop();
  recv_thread_.Stop();
  decoder_thread_.Stop();
}

template <typename PC>
bool OnlineManager<PC>::Impl::Running() const {
  return (!param_.calib_from_lidar || load_thread_.Running()) && recv_thread_.Running() &&
         decoder_thread_.Running();
}

template <typename PC>
bool OnlineManager<PC>::Impl::OnOwnThread() const {
  return load_thread_.IsCurrent() || recv_thread_.IsCurrent() || decoder_thread_.IsCurrent();
}

template <typename PC>
bool OnlineManager<PC>::Impl::StartLoad() {
  return load_thread_.Start([this] { loader_->Run(load_thread_); });
}

template <typename PC>
bool OnlineManager<PC>::Impl::StartRecv() {
  return recv_thread_.Start([this] {
    const InputSock* socket = Socket();
    if (socket != nullptr) kernel_drops_.ReceivingBegins(socket->Drops());
    RecvLoop();
    if (socket != nullptr) kernel_drops_.ReceivingEnds(socket->Drops());
  });
}

template <typename PC>
bool OnlineManager<PC>::Impl::StartDecoder() {
  return decoder_thread_.Start([this] { DecodeLoop(); });
}

template <typename PC>
void OnlineManager<PC>::Impl::RecvLoop() {
  const bool tapped = static_cast<bool>(application_.packet);
  const InputSock* const socket = Socket();
  const auto empty_datagrams = [socket] { return socket != nullptr ? socket->EmptyDatagrams() : 0; };
  Pacing pacing;
  std::shared_ptr<Buffer> current;
  while (recv_thread_.Running()) {
    if (!current && !Survives(recv_out_of_memory_, [&] { current = GetBuffer(); })) {
      pacing.Sleep(Pacing::Cycle::kIdle);
      continue;
    }
    const uint64_t empty_before = empty_datagrams();
    const ReceiveTimer timer;
    const bool received = input_->RecvPacket(current, int{PACKET_BUFFER_SIZE}, nullptr, true) > 0;
    // A pause for each empty datagram would keep the sensor's waiting behind them.
    const bool backlog = timer.DidNotWait() && (received || empty_datagrams() != empty_before);
    if (received) {
      if (tapped) current->received = WallClock();
      received_.Add();
      received_bytes_.Add(current->length);
      const auto hand_over = [&] {
        std::shared_ptr<Buffer> next = GetBuffer();
        if (packet_queue_.Push(current) > MAX_QUEUED_PACKETS) packet_queue_.Clear();
        current = std::move(next);
      };
      if (!Survives(recv_out_of_memory_, hand_over)) packet_queue_.CountDiscarded();
    }
    pacing.Sleep(backlog    ? Pacing::Cycle::kBacklog
                 : received ? Pacing::Cycle::kPacket
                            : Pacing::Cycle::kIdle);
  }
}

template <typename PC>
void OnlineManager<PC>::Impl::DecodeLoop() {
  Pacing pacing;
  while (decoder_thread_.Running()) {
    if (loader_ && loader_->TakeRecord()) {  // between two packets, never inside one
      decoder_->UpdateCheckParam(service_->GetCheckParam(param_.lidar_type));
      calibration_ = loader_->FilledAll() ? CALIBRATION_FROM_SENSOR : CALIBRATION_NONE;
    }
    bool more = false;
    const std::shared_ptr<Buffer> packet = packet_queue_.Pop(more);
    if (packet) {
      delivery_.Decode(*decoder_, packet->View(), 0);
      Survives(decoder_out_of_memory_, [&] { free_queue_.Push(packet); });
    }
    pacing.Sleep(more ? Pacing::Cycle::kBacklog : packet ? Pacing::Cycle::kPacket : Pacing::Cycle::kIdle);
  }
}

template <typename PC>
std::shared_ptr<Buffer> OnlineManager<PC>::Impl::GetBuffer() {
  std::shared_ptr<Buffer> buffer = free_queue_.Pop();
  return buffer ? buffer : std::make_shared<Buffer>();
}

// IMU samples, on the decoding thread

template <typename PC>
void OnlineManager<PC>::Impl::SplitIMUFrame() {
  imu_samples_.Add();
  Survives(decoder_out_of_memory_, [&] { PutImuMsg(std::move(decoder_->imu_msg_)); });
  decoder_->imu_msg_.reset();
  Survives(decoder_out_of_memory_, [&] { decoder_->imu_msg_ = GetImuMsg(); });
}

template <typename PC>
void OnlineManager<PC>::Impl::PutImuMsg(std::shared_ptr<ImuMsg> msg) {
  if (application_.put_imu_msg) application_.put_imu_msg(std::move(msg));
}

template <typename PC>
std::shared_ptr<ImuMsg> OnlineManager<PC>::Impl::GetImuMsg() {
  return application_.get_imu_msg ? application_.get_imu_msg() : nullptr;
}

// Statistics, on any thread

template <typename PC>
DriverStatistics OnlineManager<PC>::Impl::ReadStatistics() const {
  const InputSock* socket = Socket();
  DriverStatistics statistics = ReadSettled([&] {
    const PacketCounts& packets = decoder_->ProcessedPackets();
    DriverStatistics now;
    now.decoded = packets.accepted.Value();
    now.refused_length = packets.wrong_length.Value();
    now.refused_identifier = packets.wrong_identifier.Value();
    now.not_for_us = socket != nullptr ? socket->EmptyDatagrams() : 0;
    now.discarded = packet_queue_.Discarded();
    now.queued = packet_queue_.Waiting();
    now.received = received_.Value() + now.not_for_us;
    now.received_bytes = received_bytes_.Value();
    now.frames = delivery_.Frames();
    now.imu_samples = imu_samples_.Value();
    return now;
  });
  if (socket != nullptr) {
    statistics.kernel_dropped = kernel_drops_.Losses(socket->Drops());
    statistics.receive_buffer_bytes = socket->ReadBuffer();
  }
  statistics.calibration = calibration_;
  statistics.out_of_memory =
      recv_out_of_memory_.Value() + decoder_out_of_memory_.Value() + delivery_.OutOfMemory();
  if (loader_) {
    statistics.out_of_memory += loader_->OutOfMemory();
    statistics.calibration_bytes = loader_->ReceivedBytes();
    statistics.calibration_sections = loader_->FilledSections();
  }
  return statistics;
}

template <typename PC>
OnlineManager<PC>::OnlineManager() : impl_(std::make_shared<Impl>(this)) {}

template <typename PC>
OnlineManager<PC>::~OnlineManager() = default;

template <typename PC>
bool OnlineManager<PC>::Init(const DriverParam& param) {
  return impl_->Init(param);
}

template <typename PC>
bool OnlineManager<PC>::Start() {
  return impl_->Start();
}

template <typename PC>
void OnlineManager<PC>::Stop() {
  impl_->Stop();
}

template <typename PC>
bool OnlineManager<PC>::GetStatistics(DriverStatistics& statistics) const {
  statistics = impl_->ReadStatistics();
  return true;
}

#define ORVA_INSTANTIATE(PC) template class OnlineManager<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)
#undef ORVA_INSTANTIATE

}  // namespace tevoro::lidar
