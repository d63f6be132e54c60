// SPDX-License-Identifier: Apache-2.0
//
// Each decoder beside the literal transcription of its rule, on the same packets in the same run. Both must
// give the same points to the bit. Reported: points a second of both, and their ratio.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "decoder/decoder_factory.h"
#include "scan_frame.h"
#include "support/calibrations.h"
#include "support/packets.h"
#include "support/reference_decoder.h"

namespace {

using orva::test::Packet;
using orva::test::Random;
using Clock = std::chrono::steady_clock;

DecoderParam Limits(bool mounted) {
  DecoderParam param;
  param.min_distance = 0.4F;
  param.max_distance = 230.0F;
  param.min_azimuth = -180.0F;
  param.max_azimuth = 180.0F;
  param.min_elevation = -90.0F;
  param.max_elevation = 90.0F;
  param.use_transform = mounted;
  param.yaw = 30.0F;
  param.pitch = 2.0F;
  param.z_offset = 1.8F;
  return param;
}

template <typename PC>
bool SamePoints(const PC& a, const PC& b) {
  return a.points.size() == b.points.size() && !a.points.empty() &&
         std::memcmp(a.points.data(), b.points.data(), a.points.size() * sizeof(a.points[0])) == 0;
}

template <typename PC>
void DecodeFrame(benchmark::State& state, LidarType model, bool mounted) {
  const std::vector<Packet> frame = orva::bench::ScanFrame(model);
  const DecoderParam param = Limits(mounted);
  Random random(3);
  const auto calibration = orva::test::PlausibleCalibration(random);

  const auto reference = orva::test::MakeReference<PC>(model, param);
  PC reference_cloud;
  reference->cloud = &reference_cloud;
  reference->Update(*calibration);

  const auto decoder = tevoro::lidar::DecoderFactory<PC>::CreateDecoder(model, param);
  const auto cloud = std::make_shared<PC>();
  decoder->RegisterCallBack([](const Error&) {}, [](const uint16_t&, const double&) {});
  decoder->UpdateCheckParam(calibration.get());
  decoder->point_cloud_ = cloud;

  double reference_seconds = 0.0;
  double driver_seconds = 0.0;
  double points = 0.0;
  std::vector<double> ratios;  // of each frame: their median stands firm on a busy machine
  const auto seconds = [](Clock::duration time) { return std::chrono::duration<double>(time).count(); };
  for (auto _ : state) {
    reference_cloud.points.clear();
    cloud->points.clear();
    const Clock::time_point start = Clock::now();
    for (const Packet& packet : frame) reference->Decode(packet.data(), 0);
    const Clock::time_point middle = Clock::now();
    for (const Packet& packet : frame) decoder->ProcessMsopPacket(packet.data(), packet.size(), 0);
    const Clock::time_point end = Clock::now();
    reference_seconds += seconds(middle - start);
    driver_seconds += seconds(end - middle);
    state.SetIterationTime(seconds(end - middle));
    points += static_cast<double>(cloud->points.size());
    ratios.push_back(seconds(middle - start) / seconds(end - middle));
    if (!SamePoints(reference_cloud, *cloud)) {
      state.SkipWithError("the points differ");
      break;
    }
  }
  state.counters["driver_points_per_s"] = points / driver_seconds;
  state.counters["transcription_points_per_s"] = points / reference_seconds;
  std::nth_element(ratios.begin(), ratios.begin() + static_cast<long>(ratios.size() / 2), ratios.end());
  if (!ratios.empty()) state.counters["ratio"] = ratios[ratios.size() / 2];
}

/// Registered by hand: the names say cloud type and model.
template <typename PC>
void Register(const std::string& cloud) {
  for (const LidarType model : {TS4B, TS6, NV2}) {
    for (const bool mounted : {false, true}) {
      const std::string name =
          "Decode/" + cloud + "/" + orva::test::LayoutOf(model).name + (mounted ? "/mounted" : "");
      benchmark::RegisterBenchmark(name.c_str(), DecodeFrame<PC>, model, mounted)->UseManualTime();
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  Register<PointCloud<Point>>("Point");
  Register<PointCloud<PointTime>>("PointTime");
  Register<PointCloud<PointSource>>("PointSource");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
