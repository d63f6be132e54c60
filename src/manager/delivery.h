// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

#include "common/console.h"
#include "common/counter.h"
#include "common/out_of_memory.h"
#include "decoder/decoder.h"
#include "input/buffer.h"
#include "manager/application_callbacks.h"

namespace tevoro::lidar {

/// The way between a decoder and the application, the same in live mode and in replay: packets go in, packet
/// faults and finished frames come out, and each frame is followed by a fresh cloud of the application's.
/// Used by the thread that decodes; the counts by any.
template <typename PC>
class Delivery {
 public:
  /// `application` must outlive this.
  explicit Delivery(const ApplicationCallbacks<PC>& application) : application_(application) {}
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  /// Makes `decoder` report here. It must not outlive this.
  void Connect(Decoder<PC>& decoder) {
    decoder.RegisterCallBack([this](const Error& error) { ErrorException(error); },
                             [this, &decoder](const uint16_t& /*laser_num*/, const double& timestamp) {
                               SplitFrame(decoder, timestamp);
                             });
  }

  /// Shows a packet as it came to whoever registered for that, then decodes its blocks from `start`. True
  /// when it ended a frame. Where memory runs out the frame is dropped whole, up to the end of the next one
  /// if this packet held its end.
  bool Decode(Decoder<PC>& decoder, const PacketView& packet, uint16_t start) {
    if (application_.packet) {
      Survives(out_of_memory_, [&] { application_.packet(packet.data, packet.length, packet.received); });
    }
    bool ended = false;
    const auto decode = [&] { ended = decoder.ProcessMsopPacket(packet.data, packet.length, start); };
    if (!Survives(out_of_memory_, decode)) decoder.point_cloud_.reset();
    return ended;
  }

  std::shared_ptr<PC> GetPointCloud() {
    if (application_.get_point_cloud) return application_.get_point_cloud();
    PrintLine(Colour::kYellow, "Error:Get point cloud call back is nullptr!");
    return nullptr;
  }

  uint64_t Frames() const { return frames_.Value(); }              ///< ended so far, with or without a cloud
  uint64_t OutOfMemory() const { return out_of_memory_.Value(); }  ///< times that memory ran out

 private:
  void SplitFrame(Decoder<PC>& decoder, double timestamp) {
    frames_.Add();
    // Moved out, so that the application may be its only owner from the put callback on.
    if (std::shared_ptr<PC> cloud = std::move(decoder.point_cloud_)) {
      cloud->timestamp = timestamp;
      Survives(out_of_memory_, [&] { PutPointCloud(std::move(cloud)); });
    }
    Survives(out_of_memory_, [&] { decoder.point_cloud_ = GetPointCloud(); });
  }
  void PutPointCloud(std::shared_ptr<PC> cloud) {
    if (application_.put_point_cloud) application_.put_point_cloud(std::move(cloud));
  }
  void ErrorException(const Error& error) {
    if (application_.exception) application_.exception(error);
  }

  const ApplicationCallbacks<PC>& application_;
  Counter frames_;
  Counter out_of_memory_;
};

}  // namespace tevoro::lidar
