// SPDX-License-Identifier: Apache-2.0
//
// A scripted sensor and an application, at the two ends of a live driver.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "online/online_manager.h"
#include "support/decoder_rig.h"
#include "support/loopback.h"

namespace orva::test {

/// The data side: sends packets no faster than they are taken, so none is lost.
class DataPort {
 public:
  explicit DataPort(uint16_t driver_port) : driver_port_(driver_port) {}

  void Send(const Packet& packet) { SendBytes(packet.data(), packet.size()); }
  void Send(const std::vector<Packet>& packets) {
    for (const Packet& packet : packets) Send(packet);
  }
  void SendBytes(const void* data, size_t size) {
    constexpr unsigned kWindow = 40;  // a fraction of the smallest receive buffer
    if (++sent_ % kWindow == 0) Drained();
    peer_.Send(driver_port_, data, size);
  }
  bool Drained() const {
    return Eventually([this] { return LookUp(driver_port_).waiting == 0; });
  }

 private:
  UdpPeer peer_;
  uint16_t driver_port_;
  unsigned sent_ = 0;
};

struct CalibrationRequest {
  unsigned last_chunk = 0;
  uint32_t offset = 0;
  unsigned count = 0;

  bool operator==(const CalibrationRequest&) const = default;
};
inline void PrintTo(const CalibrationRequest& r, std::ostream* out) {
  *out << "{last " << r.last_chunk << ", offset " << r.offset << ", count " << r.count << '}';
}

inline std::string LittleEndian32(uint32_t value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> (8 * i));
  return bytes;
}

/// A reply that announces a stream of `stream_bytes` and carries `payload`.
inline std::string CalibrationReply(size_t stream_bytes, const std::string& payload) {
  return "ZZZZ" + LittleEndian32(static_cast<uint32_t>(stream_bytes + 32)) + std::string(28, '\x5A') +
         payload + "end";
}

/// The section stream of a calibration, its sections in the order of `markers`.
inline std::string SectionStream(const CheckParam& check, const std::string& markers = "ABCD") {
  std::string stream;
  for (const char marker : markers) {
    stream += std::string(4, marker);
    const void* field = marker == 'A'   ? static_cast<const void*>(check.elevation)
                        : marker == 'B' ? static_cast<const void*>(check.azimuth)
                        : marker == 'C' ? static_cast<const void*>(check.weight)
                                        : static_cast<const void*>(check.near_filter);
    const size_t size = marker <= 'B'   ? sizeof(check.azimuth)
                        : marker == 'C' ? sizeof(check.weight)
                                        : sizeof(check.near_filter);
    stream.append(static_cast<const char*>(field), size);
  }
  return stream;
}

/// The command side: answers every request by a script, on a thread of its own.
class CommandPort {
 public:
  /// Gets the request and how many came before it; returns the datagrams to answer with.
  using Script = std::function<std::vector<std::string>(const CalibrationRequest&, size_t)>;

  explicit CommandPort(Script script) : script_(std::move(script)), thread_([this] { Serve(); }) {}
  ~CommandPort() {
    ending_ = true;
    thread_.join();
  }
  CommandPort(const CommandPort&) = delete;
  CommandPort& operator=(const CommandPort&) = delete;

  CalibrationParam Param() const {
    CalibrationParam param;
    param.local_ip = param.lidar_ip = "127.0.0.1";
    param.lidar_port = peer_.Port();
    return param;
  }

  /// The first `count` requests, once they have come.
  std::vector<CalibrationRequest> Requests(size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kPatience, [&] { return requests_.size() >= count; });
    return {requests_.begin(), requests_.begin() + static_cast<ptrdiff_t>(std::min(count, requests_.size()))};
  }
  size_t RequestCount() {
    const std::lock_guard lock(mutex_);
    return requests_.size();
  }

  /// Answers each request with exactly what it asks for; the closing request with 100 bytes of noise.
  static Script Obedient(const std::string& stream) {
    return [stream](const CalibrationRequest& r, size_t) -> std::vector<std::string> {
      return {
          CalibrationReply(stream.size(), stream.substr(std::min<size_t>(r.offset, stream.size()), r.count))};
    };
  }

 private:
  void Serve() {
    while (!ending_) {
      uint16_t driver = 0;
      const std::string bytes = peer_.Receive(&driver, 20);
      if (bytes.empty()) continue;
      const CalibrationRequest request = Parse(bytes);
      size_t earlier = 0;
      {
        const std::lock_guard lock(mutex_);
        earlier = requests_.size();
        requests_.push_back(request);
      }
      changed_.notify_all();
      for (const std::string& reply : script_(request, earlier)) peer_.Send(driver, reply);
    }
  }

  /// A malformed request counts as one for 0xBAD bytes.
  static CalibrationRequest Parse(const std::string& bytes) {
    const auto* b = reinterpret_cast<const uint8_t*>(bytes.data());
    unsigned sum = 0;
    for (size_t i = 0; i + 1 < bytes.size(); ++i) sum += b[i];
    if (bytes.size() != 12 || bytes.substr(0, 4) != "\xA5\xA5\xA5\xA5" || b[11] != sum % 256)
      return {9, 0, 0xBAD};
    return {b[4], U16(b + 5) + 65536U * U16(b + 7), U16(b + 9)};
  }

  UdpPeer peer_;
  Script script_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<CalibrationRequest> requests_;
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

/// Keeps what the driver delivers, in the order of delivery.
template <typename T>
class Collector {
 public:
  void Put(std::shared_ptr<T> item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    changed_.notify_all();
  }
  size_t Count() {
    const std::lock_guard lock(mutex_);
    return items_.size();
  }
  bool WaitFor(size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return items_.size() >= count; });
  }
  std::shared_ptr<T> At(size_t index) {
    const std::lock_guard lock(mutex_);
    return items_.at(index);
  }
  std::shared_ptr<T> Last() {
    const std::lock_guard lock(mutex_);
    return items_.back();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::shared_ptr<T>> items_;
};

inline DriverParam LiveParam(LidarType model, uint16_t port = FreePort()) {
  DriverParam param;
  param.lidar_type = model;
  param.input_param.host_ip = "127.0.0.1";
  param.input_param.msop_port = port;
  param.decoder_param = OpenLimits();
  return param;
}

/// `packets` packets of a grid model, the frame-end marker in block `marker` of the last.
inline std::vector<Packet> Frame(Random& random, LidarType model, size_t packets, size_t marker) {
  std::vector<Packet> frame;
  for (size_t i = 0; i < packets; ++i) frame.push_back(PlausiblePacket(random, model));
  frame.back().FrameEnd(marker);
  return frame;
}

/// A live driver and an application that takes everything.
template <typename PC>
struct LiveDriver {
  LiveDriver() {
    manager.RegisterPointCloudCallBack([this](std::shared_ptr<PC> cloud) { frames.Put(std::move(cloud)); },
                                       [] { return std::make_shared<PC>(); });
    manager.RegisterImuCallBack([this](std::shared_ptr<ImuMsg> sample) { imu.Put(std::move(sample)); },
                                [] { return std::make_shared<ImuMsg>(); });
    manager.RegisterExceptionCallBack(
        [this](const Error& error) { errors.Put(std::make_shared<Error>(error)); });
  }

  Collector<PC> frames;
  Collector<ImuMsg> imu;
  Collector<Error> errors;
  tevoro::lidar::OnlineManager<PC> manager;  // last: its threads use the others
};

/// The frames that the transcription makes of a stream decoded from block 0 of each packet.
template <typename PC>
std::vector<std::shared_ptr<PC>> ExpectedFrames(LidarType model, const std::vector<Packet>& packets,
                                                const CheckParam* calibration = nullptr) {
  const auto reference = MakeReference<PC>(model, OpenLimits());
  if (calibration != nullptr) reference->Update(*calibration);
  auto cloud = std::make_shared<PC>();
  std::vector<std::shared_ptr<PC>> frames;
  reference->cloud = cloud.get();
  reference->on_frame = [&](double time) {
    cloud->timestamp = time;
    frames.push_back(std::move(cloud));
    cloud = std::make_shared<PC>();
    reference->cloud = cloud.get();
  };
  for (const Packet& packet : packets) reference->Decode(packet.data(), 0);
  return frames;
}

}  // namespace orva::test
