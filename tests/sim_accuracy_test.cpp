// SPDX-License-Identifier: Apache-2.0
//
// A simulated scene goes through packets, a capture file and the driver, and comes back where it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "sim/calibration.h"
#include "sim/capture_writer.h"
#include "sim/sensor.h"
#include "support/player.h"
#include "support/temp_folder.h"

namespace orva::test {
namespace {

using Cloud = PointCloud<PointSource>;

struct Case {
  LidarType model;
  const char* scene;
  double distance_step;  ///< metres, of the model's wire format
};

void PrintTo(const Case& c, std::ostream* out) {
  *out << c.scene << " with model " << c.model;
}

class SimAccuracy : public testing::TestWithParam<Case> {
 protected:
  /// Records the sensor; keeps the truth of all its measurements.
  void Record(const sim::SensorConfig& config) {
    sim::Sensor sensor(config);
    model_ = &sensor.GetModel();
    sim::WriteCalibrationFolder(sensor.GetCalibration(), *model_, folder_.Path("calib"));
    sim::CaptureOptions options;
    options.destination_port = param_.input_param.msop_port;
    sim::CaptureWriter writer(param_.input_param.pcap_path, options);
    sim::TimedPacket packet;
    while (sensor.Next(packet)) {
      writer.Write(packet);
      truth_.insert(truth_.end(), sensor.Truth().begin(), sensor.Truth().end());
    }
    writer.Finish();
  }

  /// Plays a frame. NV2 may give its first line a cloud of its own; all of them together are the frame.
  std::vector<PointSource> Play(Player<Cloud>& player, int frame) {
    std::vector<PointSource> points;
    size_t number = player.Count() + 1;
    auto cloud = player.Play(frame);
    while (cloud) {
      points.insert(points.end(), cloud->points.begin(), cloud->points.end());
      if (cloud->points.size() > model_->BlocksPerFrame() / 2) {
        last_ = cloud;
        break;
      }
      cloud = player.Wait(++number);
    }
    return points;
  }

  const TempFolder folder_;
  DriverParam param_ = ReplayParam(GetParam().model, folder_.Path("capture.pcap"));
  const sim::Model* model_ = nullptr;
  std::vector<sim::TrueHit> truth_;
  std::shared_ptr<Cloud> last_;
};

TEST_P(SimAccuracy, GivesTheSceneBack) {
  constexpr int kFrames = 2;
  sim::SensorConfig config;
  config.model = GetParam().model;
  config.scene = GetParam().scene;
  config.frames = kFrames;
  config.noise = 0.0;
  config.dropout = 0.01;
  Record(config);

  param_.calibration_param.calib_folder = folder_.Path("calib");
  Player<Cloud> player;
  ASSERT_GE(player.Open(param_), kFrames);

  const bool by_line = model_->columns == model_->blocks_per_packet;
  double worst_distance = 0.0;
  size_t returns = 0;
  for (int frame = 0; frame < kFrames; ++frame) {
    // A packet of one line ends the frame before it, all but its first block.
    const size_t first =
        static_cast<size_t>(frame) * model_->BlocksPerFrame() + (by_line && frame > 0 ? 1 : 0);
    const std::vector<PointSource> points = Play(player, frame);
    ASSERT_GE(points.size(), model_->BlocksPerFrame() - 1);
    for (size_t i = 0; i < points.size() && first + i < truth_.size(); ++i) {
      const PointSource& point = points[i];
      const sim::TrueHit& truth = truth_[first + i];
      const sim::Vec3 seen{point.x, point.y, point.z};
      const double distance = std::sqrt(sim::Dot(seen, seen));
      ASSERT_EQ(point.label, (first + i) / model_->columns % model_->lines);
      ASSERT_EQ(truth.returned, distance > 0.0) << "measurement " << first + i;
      if (!truth.returned) continue;
      ++returns;
      ASSERT_GT(point.intensity, 0);
      const sim::Vec3 off = seen - truth.point;
      const double position_error = std::sqrt(sim::Dot(off, off));
      worst_distance = std::max(worst_distance, std::abs(distance - truth.distance));
      // Both angles are cut to hundredths of a degree.
      const double beam_error = std::sqrt(2.0) * sim::Radians(0.01) * truth.distance;
      ASSERT_LE(position_error, GetParam().distance_step / 2 + beam_error + 1e-4)
          << "measurement " << first + i;
    }
    if (model_->type == TS4B || model_->type == TS6) {
      EXPECT_EQ(last_->status_word, 0x0101);
      EXPECT_EQ(last_->status_byte, 0x02);
      EXPECT_NEAR(last_->temperature_a, 31.0, 0.1);
      EXPECT_NEAR(last_->temperature_b, 28.5, 0.1);
    }
    if (model_->type == TS6) {
      // The play of a frame starts with the packet that ended the one before; it gives the time.
      const double packet_spacing = 1.0 / (config.rate * model_->PacketsPerFrame());
      const double start = static_cast<double>(config.start_ns) * 1e-9 + frame / config.rate;
      EXPECT_NEAR(last_->timestamp, frame == 0 ? start : start - packet_spacing, 2e-6);
    }
  }
  EXPECT_LE(worst_distance, GetParam().distance_step / 2 + 1e-4);
  EXPECT_GT(worst_distance, GetParam().distance_step / 4);  // it did measure
  EXPECT_GT(returns, kFrames * model_->BlocksPerFrame() * 9 / 10);
}

constexpr double kTs4bStep = 1.645 * 0.15 / 64;
constexpr double kTs6Step = 1.645 * 0.149896229 / 64;
constexpr double kNv2Step = 0.009375;

INSTANTIATE_TEST_SUITE_P(Models, SimAccuracy,
                         testing::Values(Case{TS4B, "street", kTs4bStep}, Case{TS4B, "room", kTs4bStep},
                                         Case{TS6, "street", kTs6Step}, Case{TS6, "room", kTs6Step},
                                         Case{NV2, "street", kNv2Step}, Case{NV2, "room", kNv2Step}));

}  // namespace
}  // namespace orva::test
