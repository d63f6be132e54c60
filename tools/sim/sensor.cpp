// SPDX-License-Identifier: Apache-2.0
#include "sensor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

#include "random.h"

namespace orva::sim {
namespace {

constexpr std::array<uint8_t, 8> kIdentifier{0xEE, 0xFF, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

constexpr double kImuHertz = 100.0;
constexpr double kImuRateNoise = 0.001;   // radians per second
constexpr double kImuForceNoise = 0.015;  // metres per second squared
constexpr uint32_t kStampLimit = 0xFFFFFF;

// Echo: a white target close by, hit squarely, fills the 12 bits; strength falls with the distance, and
// below a few counts nothing is told from the dark.
constexpr double kFullScale = 4095.0;
constexpr double kFalloff = 35.0;  // metres
constexpr double kWeakest = 3.0;
constexpr double kFarthest = 230.0;  // metres

enum Stream : uint64_t { kPackets = 1ULL << 60, kImu = 2ULL << 60 };

const SensorConfig& Checked(const SensorConfig& config) {
  const auto demand = [](bool met, const char* text) {
    if (!met) throw std::invalid_argument(text);
  };
  demand(config.rate > 0.0 && config.rate <= 1000.0, "the frame rate must be above 0 and at most 1000");
  demand(config.noise >= 0.0 && std::isfinite(config.noise), "the noise must be 0 or more metres");
  demand(config.dropout >= 0.0 && config.dropout <= 1.0, "the drop-out share must be between 0 and 1");
  return config;
}

Cone Enclose(const Vec3& apex, const std::vector<Vec3>& directions) {
  Vec3 sum;
  for (const Vec3& direction : directions) sum = sum + direction;
  Cone cone{apex, 1.0 / std::sqrt(Dot(sum, sum)) * sum, 0.0};
  for (const Vec3& direction : directions) {
    cone.half_angle = std::max(cone.half_angle, std::acos(std::min(1.0, Dot(direction, cone.axis))));
  }
  return cone;
}

double EchoCounts(const Hit& hit) {
  const double spread = hit.distance / kFalloff;
  return std::min(kFullScale, kFullScale * hit.reflectivity * hit.cosine / (1.0 + spread * spread));
}

}  // namespace

Sensor::Sensor(const SensorConfig& config)
    : config_(Checked(config)),
      model_(FindModel(config.model)),
      calibration_(MakeCalibration(model_, config.seed)),
      scene_(MakeScene(config.scene, config.seed)),
      blocks_(model_.blocks_per_packet),
      truth_(model_.blocks_per_packet),
      directions_(model_.blocks_per_packet) {
  beams_.reserve(model_.BlocksPerFrame());
  for (uint32_t line = 0; line < model_.lines; ++line) {
    for (uint32_t column = 0; column < model_.columns; ++column) {
      beams_.push_back(BeamDirection(line, column));
    }
  }
}

bool Sensor::Next(TimedPacket& packet) {
  const uint32_t per_frame = model_.PacketsPerFrame();
  if (config_.frames != 0 && packet_index_ >= config_.frames * per_frame) return false;
  const double time = static_cast<double>(packet_index_) / (config_.rate * per_frame);
  SampleImu(time);
  Measure(time);

  PacketContent content;
  content.blocks = blocks_;
  content.time_ns = config_.start_ns + std::llround(time * 1e9);
  content.frame = packet_index_ / per_frame;
  content.imu = imu_;
  content.housekeeping = ReadHousekeeping(time);
  packet.time_ns = content.time_ns;
  packet.payload.assign(model_.packet_size, 0);
  std::copy(kIdentifier.begin(), kIdentifier.end(), packet.payload.begin());
  model_.encode(content, calibration_, packet.payload.data());
  ++packet_index_;
  return true;
}

Vec3 Sensor::BeamDirection(uint32_t line, uint32_t column) const {
  if (model_.has_calibration) {
    const size_t code = line * 256 + column;
    return Direction(-static_cast<double>(calibration_.azimuth[code]),
                     static_cast<double>(calibration_.elevation[code]));
  }
  return Direction(std::lerp(model_.left, model_.right, column / (model_.columns - 1.0)),
                   std::lerp(model_.top, model_.bottom, line / (model_.lines - 1.0)));
}

void Sensor::Measure(double time) {
  const Pose pose = scene_->motion.PoseAt(time);
  Random random(config_.seed, kPackets + packet_index_);
  const uint32_t phase = model_.columns == model_.blocks_per_packet ? 0 : config_.grid_phase;
  const uint64_t first = packet_index_ * model_.blocks_per_packet + phase;
  for (uint32_t k = 0; k < model_.blocks_per_packet; ++k) {
    const auto place = static_cast<uint32_t>((first + k) % model_.BlocksPerFrame());
    Measurement& block = blocks_[k];
    block = {};
    truth_[k] = {};
    block.line = place / model_.columns;
    block.column = place % model_.columns;
    directions_[k] = pose.rotation.ToWorld(beams_[place]);
  }
  if (!model_.measures) return;
  const auto parts = scene_->world.PartsWithin(Enclose(pose.position, directions_));
  for (uint32_t k = 0; k < model_.blocks_per_packet; ++k) {
    Measurement& block = blocks_[k];
    const auto hit = NearestHit(parts, {pose.position, directions_[k], time});
    const bool dropped = config_.dropout > 0.0 && random.Uniform() < config_.dropout;
    if (!hit || hit->distance > kFarthest || EchoCounts(*hit) < kWeakest || dropped) continue;
    truth_[k] = {true, hit->distance, hit->distance * pose.rotation.ToSensor(directions_[k])};
    block.returned = true;
    block.distance = hit->distance + (config_.noise > 0.0 ? config_.noise * random.Normal() : 0.0);
    block.intensity = static_cast<uint32_t>(std::lround(EchoCounts(*hit)));
  }
}

void Sensor::SampleImu(double time) {
  const auto sample = static_cast<uint64_t>(time * kImuHertz);
  const auto stamp = static_cast<uint32_t>(sample % kStampLimit) + 1;
  if (stamp == imu_.stamp) return;
  const double sampled_at = static_cast<double>(sample) / kImuHertz;
  true_motion_ = {scene_->motion.AngularRate(sampled_at), scene_->motion.SpecificForce(sampled_at), stamp};
  imu_ = true_motion_;
  Random random(config_.seed, kImu + sample);
  const auto disturb = [&](Vec3& v, double deviation) {
    v = v + config_.imu_noise * deviation * Vec3{random.Normal(), random.Normal(), random.Normal()};
  };
  disturb(imu_.angular_rate, kImuRateNoise);
  disturb(imu_.specific_force, kImuForceNoise);
}

Housekeeping Sensor::ReadHousekeeping(double time) const {
  const double warm = 1.0 - std::exp(-time / 60.0);  // it warms up within minutes
  return {0x0101, 31.0 + 12.0 * warm, 28.5 + 7.0 * warm, 0x02};
}

}  // namespace orva::sim
