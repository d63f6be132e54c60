// SPDX-License-Identifier: Apache-2.0
#include "pcap/pcap_manager.h"

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "common/cloud_types.h"
#include "common/console.h"
#include "common/counter.h"
#include "common/out_of_memory.h"
#include "common/worker_thread.h"
#include "decoder/decoder_factory.h"
#include "input/input_factory.h"
#include "input/input_pcap.h"
#include "manager/delivery.h"
#include "manager/folder_calibration.h"
#include "manager/statistics_reading.h"
#include "param/param_service.h"
#include "pcap/play_request.h"

namespace tevoro::lidar {

template <typename PC>
class PcapManager<PC>::Impl {
 public:
  explicit Impl(PcapManager* owner) : delivery_(owner->application_) {}

  bool Init(const DriverParam& param);
  bool Start();
  void Stop() { thread_.Stop(); }
  bool GetLocalFileStatus(int& status);
  bool PlayLocalFileFrame(int frame);
  DriverStatistics ReadStatistics() const;

 private:
  /// Where a frame begins.
  struct FramePosPackage {
    long position;  ///< of its first record in the file
    uint16_t seq;   ///< its first block in that record's packet
  };

  void Release();

  // The replay thread.
  void ProcessData();
  void IndexRecord();
  void PlayFirstPacket(const PlayRequest::Turn& turn);
  void PlayNextPacket(const PlayRequest::Turn& turn);
  bool ReadRecord(PacketView& packet, long* position, bool record, int& length);
  void CountRecord(int length);

  Delivery<PC> delivery_;
  std::vector<FramePosPackage> frame_index_;  ///< appended to by the replay thread until load_finished_
  std::atomic<bool> load_finished_{false};
  PlayRequest play_request_;
  std::mutex replay_lock_;  ///< held while a frame's first packet is decoded, and while a play is cancelled
  std::shared_ptr<InputPcap> input_;
  std::shared_ptr<Decoder<PC>> decoder_;
  std::shared_ptr<ParamService> param_service_;

  // For statistics; counted by the replay thread.
  CalibrationState calibration_ = CALIBRATION_NONE;
  Counter index_records_;
  Counter index_not_for_us_;
  Counter plays_;
  Counter received_;
  Counter received_bytes_;
  Counter not_for_us_;
  Counter out_of_memory_;  ///< beside what the delivery counts

  WorkerThread thread_{"orva-replay"};  // last: ends before what it uses
};

template <typename PC>
bool PcapManager<PC>::Impl::Init(const DriverParam& param) {
  decoder_ = DecoderFactory<PC>::CreateDecoder(param.lidar_type, param.decoder_param);
  if (!decoder_) return false;
  delivery_.Connect(*decoder_);
  // A replay always takes the folder.
  param_service_ = std::make_shared<ParamService>();
  if (ApplyFolder(param.lidar_type, param.calibration_param.calib_folder, *param_service_, *decoder_))
    calibration_ = CALIBRATION_FROM_FOLDER;

  input_ =
      std::dynamic_pointer_cast<InputPcap>(InputFactory::CreateInput(param.input_type, param.input_param));
  if (!input_ || !input_->Init()) {
    Release();
    return false;
  }
  decoder_->point_cloud_ = delivery_.GetPointCloud();
  return true;
}

template <typename PC>
void PcapManager<PC>::Impl::Release() {
  input_.reset();
  decoder_.reset();
  param_service_.reset();
}

/// Neither rewinds the file nor forgets its frames: after a Stop the pass goes on from where the file stands.
template <typename PC>
bool PcapManager<PC>::Impl::Start() {
  if (thread_.Running()) return true;
  if (thread_.IsCurrent()) return false;  // in a callback that has called Stop: this thread still has to end
  thread_.Stop();  // joins one that a callback has asked to end, and that may still finish its index pass
  load_finished_ = false;
  return thread_.Start([this] { ProcessData(); });
}

template <typename PC>
bool PcapManager<PC>::Impl::GetLocalFileStatus(int& status) {
  if (!load_finished_) return false;
  // A callback may ask while this very thread decodes a frame's first packet, under the lock.
  std::unique_lock<std::mutex> lock(replay_lock_, std::defer_lock);
  if (!thread_.IsCurrent()) lock.lock();
  status = static_cast<int>(frame_index_.size());
  play_request_.Cancel();
  return true;
}

template <typename PC>
bool PcapManager<PC>::Impl::PlayLocalFileFrame(int frame) {
  if (!load_finished_ || play_request_.Current()) return false;
  if (frame < 0 || static_cast<size_t>(frame) >= frame_index_.size()) return false;
  return play_request_.Ask(frame);
}

template <typename PC>
void PcapManager<PC>::Impl::ProcessData() {
  while (thread_.Running()) {
    if (!load_finished_) {
      IndexRecord();
    } else if (const PlayRequest::Turn turn = play_request_.Current(); !turn) {
      std::this_thread::yield();  // no wait: a play starts at once
    } else if (turn.frame != PlayRequest::kNextPacket) {
      PlayFirstPacket(turn);
    } else {
      PlayNextPacket(turn);
    }
  }
}

/// Looks at one record for the frame index. Nothing is decoded.
template <typename PC>
void PcapManager<PC>::Impl::IndexRecord() {
  long position = 0;
  PacketView packet;
  int length = 0;
  if (!ReadRecord(packet, &position, true, length)) return;
  if (length >= 0) index_records_.Add();
  if (length == 0) index_not_for_us_.Add();
  if (length > 0) {
    Survives(out_of_memory_, [&] {
      uint16_t seq = 0;
      const bool new_frame = decoder_->toSplite(packet.data, packet.length, seq);
      // The first packet for us opens frame 0, even one that the decoder refuses.
      if (new_frame || frame_index_.empty()) frame_index_.push_back({position, seq});
    });
  } else if (length < 0) {
    Survives(out_of_memory_, [] { PrintLine(Colour::kGreen, "pcap file is load finished!"); });
    load_finished_ = true;
  }
}

template <typename PC>
void PcapManager<PC>::Impl::PlayFirstPacket(const PlayRequest::Turn& turn) {
  const std::lock_guard<std::mutex> lock(replay_lock_);
  FramePosPackage entry = frame_index_[static_cast<size_t>(turn.frame)];
  PacketView packet;
  int length = 0;
  if (!ReadRecord(packet, &entry.position, false, length)) return;
  CountRecord(length);
  if (length <= 0) return;  // the next turn tries again
  plays_.Add();
  // A frame that ends within its first packet is delivered, and the play goes on to the next frame end.
  delivery_.Decode(*decoder_, packet, entry.seq);
  play_request_.Continue(turn);
}

template <typename PC>
void PcapManager<PC>::Impl::PlayNextPacket(const PlayRequest::Turn& turn) {
  PacketView packet;
  int length = 0;
  if (!ReadRecord(packet, nullptr, false, length)) return;
  CountRecord(length);
  if (length > 0) {
    if (delivery_.Decode(*decoder_, packet, 0)) play_request_.Finish(turn);
  } else if (length < 0) {
    decoder_->EnableFinallyFrame();
    play_request_.Finish(turn);
  }
}

/// False, and counted, when memory ran out: the file then stands before the record or behind it.
template <typename PC>
bool PcapManager<PC>::Impl::ReadRecord(PacketView& packet, long* position, bool record, int& length) {
  return Survives(out_of_memory_, [&] { length = input_->NextPacket(packet, position, record); });
}

/// Counts what a read of a play gave.
template <typename PC>
void PcapManager<PC>::Impl::CountRecord(int length) {
  if (length < 0) return;
  received_.Add();
  received_bytes_.Add(static_cast<uint64_t>(length));
  if (length == 0) not_for_us_.Add();
}

template <typename PC>
DriverStatistics PcapManager<PC>::Impl::ReadStatistics() const {
  return ReadSettled([this] {
    const PacketCounts& played = decoder_->ProcessedPackets();
    const PacketCounts& indexed = decoder_->ExaminedPackets();
    DriverStatistics now;
    now.received = received_.Value();
    now.received_bytes = received_bytes_.Value();
    now.decoded = played.accepted.Value();
    now.refused_length = played.wrong_length.Value();
    now.refused_identifier = played.wrong_identifier.Value();
    now.not_for_us = not_for_us_.Value();
    now.frames = delivery_.Frames();
    now.plays = plays_.Value();
    now.index_records = index_records_.Value();
    now.index_not_for_us = index_not_for_us_.Value();
    now.index_refused_length = indexed.wrong_length.Value();
    now.index_refused_identifier = indexed.wrong_identifier.Value();
    now.calibration = calibration_;
    now.out_of_memory = delivery_.OutOfMemory() + out_of_memory_.Value();
    return now;
  });
}

template <typename PC>
PcapManager<PC>::PcapManager() : impl_(std::make_shared<Impl>(this)) {}

template <typename PC>
PcapManager<PC>::~PcapManager() = default;

template <typename PC>
bool PcapManager<PC>::Init(const DriverParam& param) {
  return impl_->Init(param);
}

template <typename PC>
bool PcapManager<PC>::Start() {
  return impl_->Start();
}

template <typename PC>
void PcapManager<PC>::Stop() {
  impl_->Stop();
}

template <typename PC>
bool PcapManager<PC>::GetLocalFileStatus(int& status) {
  return impl_->GetLocalFileStatus(status);
}

template <typename PC>
bool PcapManager<PC>::PlayLocalFileFrame(const int& frame) {
  return impl_->PlayLocalFileFrame(frame);
}

template <typename PC>
bool PcapManager<PC>::GetStatistics(DriverStatistics& statistics) const {
  statistics = impl_->ReadStatistics();
  return true;
}

#define ORVA_INSTANTIATE(PC) template class PcapManager<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
