// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "calibration.h"
#include "model.h"
#include "packet_content.h"
#include "scene.h"

namespace orva::sim {

/// A UDP payload and when it left the sensor.
struct TimedPacket {
  std::vector<uint8_t> payload;
  int64_t time_ns = 0;  ///< UTC, nanoseconds since the epoch
};

/// Anything that yields packets in the order of their times.
class PacketSource {
 public:
  virtual ~PacketSource() = default;
  /// Replaces `packet` by the next one; false at the end. Reuses the payload's memory.
  virtual bool Next(TimedPacket& packet) = 0;
};

struct SensorConfig {
  LidarType model = TS4B;
  std::string scene = "street";
  uint64_t seed = 1;                             ///< of the unit, the scene's layout and all noise
  double rate = 10.0;                            ///< frames per second
  double noise = 0.01;                           ///< metres, standard deviation of a distance
  double dropout = 0.002;                        ///< share of the echoes that get lost, 0 to 1
  double imu_noise = 1.0;                        ///< factor on the IMU's noise; 0: none
  int64_t start_ns = 1'750'000'000'000'000'000;  ///< UTC time of the first packet
  uint64_t frames = 0;                           ///< the source ends after them; 0: never
  /// Blocks of the grid that the first frame lacks: moves the frame-end marker from a packet's last block
  /// towards its first. Models that send one line per packet ignore it.
  uint32_t grid_phase = 0;
};

/// Where a beam really ended.
struct TrueHit {
  bool returned = false;  ///< false: nothing there, too weak, or dropped out
  double distance = 0.0;  ///< metres
  Vec3 point;             ///< metres, in the sensor's frame at that moment
};

/// A simulated sensor on its way through a scene. Deterministic: the same configuration gives the same bytes.
class Sensor : public PacketSource {
 public:
  /// Throws std::invalid_argument when a value of the configuration makes no sense.
  explicit Sensor(const SensorConfig& config);

  bool Next(TimedPacket& packet) override;

  /// The truth behind the blocks of the latest packet, in their order.
  const std::vector<TrueHit>& Truth() const { return truth_; }
  /// The motion behind the latest packet, without the IMU's noise.
  const ImuSample& TrueMotion() const { return true_motion_; }

  const Model& GetModel() const { return model_; }
  const Calibration& GetCalibration() const { return calibration_; }
  /// Packets of one frame.
  uint32_t PacketsPerFrame() const { return model_.PacketsPerFrame(); }

 private:
  Vec3 BeamDirection(uint32_t line, uint32_t column) const;
  void Measure(double time);
  void SampleImu(double time);
  Housekeeping ReadHousekeeping(double time) const;

  const SensorConfig config_;
  const Model& model_;
  const Calibration calibration_;
  const std::shared_ptr<const Scene> scene_;
  std::vector<Vec3> beams_;  ///< directions, line by line
  uint64_t packet_index_ = 0;
  std::vector<Measurement> blocks_;
  std::vector<TrueHit> truth_;
  std::vector<Vec3> directions_;  ///< of the packet's beams, in the world
  ImuSample imu_;
  ImuSample true_motion_;
};

}  // namespace orva::sim
