// SPDX-License-Identifier: Apache-2.0
#include "calibration_server.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <optional>
#include <span>

#include "wire.h"

namespace orva::sim {
namespace {

constexpr size_t kRequestSize = 12;
constexpr uint8_t kRequestMagic = 0xA5;
constexpr uint8_t kReplyMagic = 0x5A;
constexpr size_t kReplyHeader = 36;
constexpr size_t kReplyTrailer = 3;
constexpr uint32_t kLengthOffset = 32;    // the announced length counts a header of the stored file
constexpr size_t kLargestPayload = 1400;  // what a datagram holds without being split

void AppendSection(std::vector<uint8_t>& stream, char letter, std::span<const float> values) {
  stream.insert(stream.end(), 4, static_cast<uint8_t>(letter));
  for (const float value : values) {
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    stream.resize(stream.size() + 4);
    PutU32(&stream[stream.size() - 4], bits);
  }
}

std::optional<CalibrationRequest> ParseRequest(std::span<const uint8_t> bytes) {
  if (bytes.size() != kRequestSize) return std::nullopt;
  const auto magic_end = bytes.begin() + 4;
  if (std::count(bytes.begin(), magic_end, kRequestMagic) != 4) return std::nullopt;
  if (static_cast<uint8_t>(std::accumulate(bytes.begin(), bytes.end() - 1, 0U)) != bytes.back()) {
    return std::nullopt;
  }
  CalibrationRequest request;
  request.last_chunk = bytes[4];
  for (size_t i = 0; i < 4; ++i) request.offset |= static_cast<uint32_t>(bytes[5 + i]) << (8 * i);
  request.count = static_cast<uint16_t>(bytes[9] | bytes[10] << 8);
  return request;
}

}  // namespace

std::vector<uint8_t> MakeCalibrationStream(const Calibration& calibration, const Model& model) {
  std::vector<uint8_t> stream;
  if (!model.has_calibration) {
    AppendSection(stream, 'A', std::array<float, 4>{});  // such units still answer, with nothing to say
    return stream;
  }
  AppendSection(stream, 'A', calibration.elevation);
  AppendSection(stream, 'B', calibration.azimuth);
  AppendSection(stream, 'C', calibration.weight);
  AppendSection(stream, 'D', calibration.near_filter);
  return stream;
}

CalibrationServer::CalibrationServer(std::vector<uint8_t> stream, const std::string& ip, uint16_t port,
                                     const ReplyFaults& faults)
    : stream_(std::move(stream)), faults_(faults), endpoint_(ip, port) {
  thread_ = std::jthread([this](const std::stop_token& stop) { Serve(stop); });
}

std::vector<CalibrationRequest> CalibrationServer::Requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void CalibrationServer::Serve(const std::stop_token& stop) {
  constexpr int kPollMs = 50;  // how long a stop may have to wait
  pthread_setname_np(pthread_self(), "sim-command");
  std::array<uint8_t, 64> buffer;
  while (!stop.stop_requested()) {
    sockaddr_in from{};
    const size_t size = endpoint_.Receive(buffer, from, kPollMs);
    const auto request = ParseRequest(std::span(buffer).first(size));
    if (!request) continue;
    {
      const std::lock_guard lock(mutex_);
      requests_.push_back(*request);
    }
    if (faults_.silent) continue;
    if (faults_.late.count() > 0) std::this_thread::sleep_for(faults_.late);
    const std::vector<uint8_t> reply = MakeReply(*request);
    for (uint32_t copy = 0; copy <= faults_.repeats; ++copy) endpoint_.Send(reply, from);
  }
}

std::vector<uint8_t> CalibrationServer::MakeReply(const CalibrationRequest& request) {
  const size_t offset = std::min<size_t>(request.offset, stream_.size());
  const size_t count = std::min({size_t{request.count}, stream_.size() - offset, kLargestPayload});
  std::vector<uint8_t> reply(kReplyHeader + count + kReplyTrailer);
  if (faults_.garbled > 0.0 && random_.Uniform() < faults_.garbled) {
    for (uint8_t& byte : reply) byte = static_cast<uint8_t>(random_.Next());
    return reply;
  }
  std::fill_n(reply.begin(), 4, kReplyMagic);
  const auto length = static_cast<uint32_t>(stream_.size()) + kLengthOffset;
  PutU32(&reply[4], faults_.claimed_length != 0 ? faults_.claimed_length : length);
  std::copy_n(stream_.begin() + static_cast<ptrdiff_t>(offset), count, reply.begin() + kReplyHeader);
  return reply;
}

}  // namespace orva::sim
