// SPDX-License-Identifier: Apache-2.0
#include "live_sensor.h"

#include <pthread.h>

#include <algorithm>
#include <utility>

#include "steady_time.h"

namespace orva::sim {
namespace {

constexpr size_t kIdentifierSize = 8;

}  // namespace

LiveSensor::LiveSensor(std::unique_ptr<PacketSource> source, const std::string& ip, uint16_t port,
                       const StreamFaults& faults, const std::string& source_ip)
    : source_(std::move(source)),
      faults_(faults),
      random_(faults.seed),
      destination_(MakeAddress(ip, port)),
      endpoint_(source_ip, 0) {
  thread_ = std::jthread([this](const std::stop_token& stop) { Play(stop); });
}

StreamCounts LiveSensor::Counts() const {
  return {sent_, refused_, disturbed_};
}

void LiveSensor::Play(const std::stop_token& stop) {
  pthread_setname_np(pthread_self(), "sim-stream");
  SleepSharply();  // the default slack is a third of the packets' spacing
  TimedPacket packet;
  bool more = source_->Next(packet);
  const int64_t first_packet = packet.time_ns;
  const int64_t start = SteadyNow();
  while (more && !stop.stop_requested()) {
    const int64_t deadline = start + packet.time_ns - first_packet;
    // Behind schedule nothing sleeps, so what is due goes out as a batch.
    if (SteadyNow() < deadline) SleepUntil(deadline);
    Deliver(packet);
    more = source_->Next(packet);
  }
  if (!held_back_.empty()) Send(held_back_);
  done_ = true;
}

void LiveSensor::Deliver(const TimedPacket& packet) {
  const std::vector<uint8_t>* outgoing = &packet.payload;
  if (Befalls(faults_.drop)) return;
  const bool corrupt = Befalls(faults_.corrupt);
  const bool wrong_length = Befalls(faults_.wrong_length);
  if (corrupt || wrong_length) {
    disturbed_packet_ = packet.payload;
    const size_t reach = random_.Uniform() < 0.5 ? kIdentifierSize : disturbed_packet_.size();
    if (corrupt) disturbed_packet_[random_.Next() % reach] ^= static_cast<uint8_t>(1 + random_.Next() % 255);
    if (wrong_length && random_.Uniform() < 0.5) {
      disturbed_packet_.pop_back();
    } else if (wrong_length) {
      disturbed_packet_.push_back(0);
    }
    outgoing = &disturbed_packet_;
  }
  if (held_back_.empty() && Befalls(faults_.reorder)) {
    held_back_ = *outgoing;
    return;
  }
  Send(*outgoing);
  if (Befalls(faults_.duplicate)) Send(*outgoing);
  if (!held_back_.empty()) {
    Send(held_back_);
    held_back_.clear();
  }
}

void LiveSensor::Send(std::span<const uint8_t> bytes) {
  ++(endpoint_.Send(bytes, destination_) ? sent_ : refused_);
}

bool LiveSensor::Befalls(double share) {
  if (share <= 0.0 || random_.Uniform() >= share) return false;
  ++disturbed_;
  return true;
}

}  // namespace orva::sim
