// SPDX-License-Identifier: Apache-2.0
//
// Every model's decoding rule, point by point, in the plainest code: formula after formula in the order and
// the precision that defines the result. The decoders are compared with it bit for bit, and the benchmarks
// measure them against it. It shares nothing with the decoders but the public records and the calibration
// record; keep it dull, an optimisation here would have nothing to be checked against.
#pragma once

#include <Eigen/Geometry>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <functional>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "orva_driver.h"
#include "param/check_param.h"

namespace orva::test {

using tevoro::lidar::CheckParam;

inline uint32_t U16(const uint8_t* p) {
  return p[0] + 256U * p[1];
}
inline uint32_t U24(const uint8_t* p) {
  return p[0] + 256U * p[1] + 65536U * p[2];
}
inline double S16(const uint8_t* p) {
  return static_cast<int16_t>(static_cast<uint16_t>(U16(p)));
}

/// Truncation toward zero; what does not fit, and NaN, gives the smallest number.
template <typename Int, typename Real>
Int Truncate(Real value) {
  constexpr double kLimit = sizeof(Int) == 8 ? 9223372036854775808.0 : 2147483648.0;
  const double wide = value;
  return wide > -kLimit && wide < kLimit ? static_cast<Int>(wide) : std::numeric_limits<Int>::min();
}

/// Sines and cosines of -180.00 to 449.99 degrees in steps of 0.01.
struct AngleTables {
  std::vector<float> sine, cosine;
  AngleTables() : sine(63000), cosine(63000) {
    for (int i = 0; i < 63000; ++i) {
      const double angle = (i - 18000) * 0.01 * M_PI / 180.0;
      sine[static_cast<size_t>(i)] = static_cast<float>(std::sin(angle));
      cosine[static_cast<size_t>(i)] = static_cast<float>(std::cos(angle));
    }
  }
  static const AngleTables& Get() {
    static const AngleTables tables;
    return tables;
  }
};

inline double UtcSeconds(const uint8_t* p) {
  std::tm t{};
  t.tm_year = static_cast<int>(U16(p + 3)) - 1900;
  t.tm_mon = p[5] - 1;
  t.tm_mday = p[6];
  t.tm_hour = p[7];
  t.tm_min = p[8];
  t.tm_sec = p[9];
  return static_cast<double>(timegm(&t)) + U24(p) * 1e-6;
}

/// One decoder of any model. `Decode` and `Split` take accepted packets of the model's length.
template <typename PC>
class ReferenceDecoder {
 public:
  ReferenceDecoder(LidarType model, const DecoderParam& param)
      : model_(model),
        param_(param),
        sine_(AngleTables::Get().sine.data() + 18000),
        cosine_(AngleTables::Get().cosine.data() + 18000) {
    const auto radians = [](float degrees) { return degrees * M_PI * 0.005555556; };
    const Eigen::Affine3d mounting = Eigen::Translation3d(param.x_offset, param.y_offset, param.z_offset) *
                                     Eigen::AngleAxisd(radians(param.yaw), Eigen::Vector3d::UnitZ()) *
                                     Eigen::AngleAxisd(radians(param.pitch), Eigen::Vector3d::UnitY()) *
                                     Eigen::AngleAxisd(radians(param.roll), Eigen::Vector3d::UnitX());
    for (int row = 0; row < 3; ++row) {
      for (int column = 0; column < 4; ++column) mounting_[row][column] = mounting.matrix()(row, column);
    }
  }

  void Update(const CheckParam& calibration) {
    // The record is packed: its floats are copied to where floats may stand.
    std::memcpy(azimuth_.data(), &calibration.azimuth, sizeof(calibration.azimuth));
    std::memcpy(elevation_.data(), &calibration.elevation, sizeof(calibration.elevation));
    std::memcpy(weight_, &calibration.weight, sizeof(weight_));
    std::memcpy(near_filter_, &calibration.near_filter, sizeof(near_filter_));
  }

  /// True when a frame ended in the packet.
  bool Decode(const uint8_t* packet, uint16_t start) {
    switch (model_) {
      case TS4B:
        return DecodeTS4B(packet, start);
      case TS6:
        return DecodeTS6(packet, start);
      case NV2:
        return DecodeNV2(packet, start);
      case TS4A:
        return DecodeTS4A(packet, start);
      default:
        return false;
    }
  }

  bool Split(const uint8_t* packet, uint16_t& seq) {
    if (model_ == NV2 && LineFell(packet[24])) {
      seq = 1;
      return true;
    }
    if (model_ == KR7) {
      const uint32_t counter = U16(packet + 26);
      if (started_ && counter >= frame_counter_) return false;
      frame_counter_ = counter;
      if (started_) seq = 0;
      return std::exchange(started_, true);
    }
    const int blocks = model_ == TS6 ? 64 : model_ == TS4A || model_ == TS4B ? 32 : 0;
    const int stride = model_ == TS6 ? 16 : model_ == TS4A ? 25 : 40;
    for (int k = 0; k < blocks; ++k) {
      if (packet[25 + stride * k] != 0x7F || packet[26 + stride * k] != 0xBF) continue;
      seq = static_cast<uint16_t>(k + 1);
      return true;
    }
    return false;
  }

  void FinishFrame() { on_frame(0.0); }

  PC* cloud = nullptr;    ///< null: nothing is stored
  ImuMsg* imu = nullptr;  ///< null: nothing is published
  std::function<void(double time)> on_frame = [](double) {};
  std::function<void()> on_imu = [] {};

 private:
  using PointT = typename PC::PointType;

  float Sine(int32_t a) const { return a < -18000 || a > 44999 ? sine_[0] : sine_[a]; }
  float Cosine(int32_t a) const { return a < -18000 || a > 44999 ? cosine_[0] : cosine_[a]; }

  /// From distance and angles in hundredths of a degree to mounted coordinates, zeros outside the limits.
  void Project(PointT& point, float d, int32_t az, int32_t el, int32_t el_index) const {
    const float r = d * Cosine(el_index);
    point.x = std::fabs(Cosine(az) * r);
    point.y = Sine(az) * std::fabs(r);
    point.z = d * Sine(el_index);
    if (param_.use_transform) {
      const double x = point.x;
      const double y = point.y;
      const double z = point.z;
      const auto& m = mounting_;
      point.x = static_cast<float>(m[0][0] * x + m[0][1] * y + m[0][2] * z + m[0][3]);
      point.y = static_cast<float>(m[1][0] * x + m[1][1] * y + m[1][2] * z + m[1][3]);
      point.z = static_cast<float>(m[2][0] * x + m[2][1] * y + m[2][2] * z + m[2][3]);
    }
    const float azimuth = static_cast<float>(az) * 0.01F;
    const float elevation = static_cast<float>(el) * 0.01F;
    const bool inside = param_.min_azimuth <= azimuth && azimuth <= param_.max_azimuth &&
                        param_.min_elevation <= elevation && elevation <= param_.max_elevation &&
                        param_.min_distance <= d && d <= param_.max_distance;
    if (!inside) point.x = point.y = point.z = 0.0F;
  }

  void Push(PointT& point, uint32_t intensity, uint8_t line, double time) {
    if (cloud == nullptr) return;
    ++point_count_;
    point.intensity = static_cast<uint16_t>(intensity);
    point.label = line;
    if constexpr (!std::is_same_v<PointT, Point>) point.timestamp = time;
    cloud->points.push_back(point);
  }

  void WriteTail(const uint8_t* words, uint8_t status) {
    if (cloud == nullptr) return;
    cloud->status_word = static_cast<uint16_t>(U16(words));
    cloud->temperature_a = U16(words + 2) * 0.0625 - 64.0;
    cloud->temperature_b = U16(words + 4) * 0.0625 - 64.0;
    cloud->status_byte = status;
  }

  void PublishImu(double time, const uint8_t* accelerations, const uint8_t* rates, double rate_scale) {
    if (imu == nullptr) return;
    imu->valid = true;
    imu->timestamp = time;
    imu->angular_velocity_x = static_cast<float>(-S16(rates + 4) * rate_scale * M_PI);
    imu->angular_velocity_y = static_cast<float>(S16(rates) * rate_scale * M_PI);
    imu->angular_velocity_z = static_cast<float>(-S16(rates + 2) * rate_scale * M_PI);
    imu->linear_acceleration_x = static_cast<float>(-S16(accelerations + 4) * 0.004788403);
    imu->linear_acceleration_y = static_cast<float>(S16(accelerations) * 0.004788403);
    imu->linear_acceleration_z = static_cast<float>(-S16(accelerations + 2) * 0.004788403);
    on_imu();
  }

  void TableAngles(uint32_t code, int32_t& az, int32_t& el) const {
    az = Truncate<int32_t>(-100.0F * azimuth_[code]);
    el = Truncate<int32_t>(100.0F * elevation_[code]);
  }

  double DistanceCorrection(float d, float sum, float divisor) const {
    const float* w = weight_;
    const float r = sum / divisor;
    const float square = r * r * w[2];
    const float linear = r * w[0];
    const float distance = d * w[1];
    return static_cast<double>(square) + 0.0 + static_cast<double>(linear) + static_cast<double>(distance) +
           static_cast<double>(w[3]);
  }

  void FilterNear(float& d, uint32_t intensity) const {
    const float* n = near_filter_;
    const float brightness = static_cast<float>(intensity);
    if (n[1] == 0.0F) return;
    if (n[3] > d) {
      if (n[2] > brightness) d = 0.0F;
    } else if (n[1] > d) {
      if (std::fabs(d - n[1]) / n[1] * n[0] > brightness) d = 0.0F;
    }
  }

  static float TimeOfFlight(uint32_t t) { return static_cast<float>((t >> 6U) + (t & 63U) * 0.015625); }

  bool DecodeTS4B(const uint8_t* packet, uint16_t start) {
    bool frame_end = false;
    for (int k = start; k < 32; ++k) {
      const uint8_t* block = packet + 40 * k;
      const uint8_t column = block[25];
      const uint8_t line = block[26];
      if (column == 0x7F && line == 0xBF) frame_end = true;
      const float tof = TimeOfFlight(U24(block + 34));
      const float raw = static_cast<float>((tof * 1.645 - 2.09) * 0.15);
      const uint32_t code = line * 256U + column;
      int32_t az = 0;
      int32_t el = 0;
      if (code > 49151) {
        az = static_cast<int32_t>(6000 - column * 47.05882353);
        el = static_cast<int32_t>(4500 - line * 47.120419);
      } else {
        TableAngles(code, az, el);
      }
      const uint32_t intensity = U24(block + 37);
      float d = static_cast<float>(raw - DistanceCorrection(raw, static_cast<float>(U24(block + 43)),
                                                            static_cast<float>(U16(block + 27))));
      FilterNear(d, intensity);
      PointT point{};
      Project(point, d, az, el, el);
      if constexpr (std::is_same_v<PointT, PointSource>) point.source_distance = Truncate<int64_t>(d);
      Push(point, intensity, line, 0.0);
    }
    if (frame_end || point_count_ > 99999) {
      if (frame_end) WriteTail(packet + 1315, packet[1333]);
      on_frame(0.0);
      point_count_ = 0;
    }
    return frame_end;
  }

  bool DecodeTS6(const uint8_t* packet, uint16_t start) {
    const double t = UtcSeconds(packet + 1078);
    if (running_time_ == 0.0) running_time_ = t;
    if (frame_time_ == 0.0) frame_time_ = t;
    bool frame_end = false;
    for (int k = start; k < 64; ++k) {
      const uint8_t* block = packet + 25 + 16 * k;
      const uint8_t column = block[0];
      const uint8_t line = block[1];
      if (column == 0x7F && line == 0xBF) frame_end = true;
      const float tof = TimeOfFlight(U24(block + 6));
      const float raw = static_cast<float>((tof * 1.645 - 2.09) * 0.149896229);
      const uint32_t intensity = U24(block + 12);
      PointT point{};
      if (raw > 0) {
        const uint32_t code = line * 256U + column;
        int32_t az = 0;
        int32_t el = 0;
        if (code <= 49151) TableAngles(code, az, el);
        float d = static_cast<float>(
            raw - DistanceCorrection(raw, static_cast<float>(intensity), static_cast<float>(U16(block + 2))));
        FilterNear(d, U24(block + 9));
        Project(point, d, az, el, el);
      }
      Push(point, intensity, line, running_time_);
      if (++block_counter_ == 256) {
        block_counter_ = 0;
        running_time_ = t;
      }
    }
    if (frame_end || point_count_ > 99999) {
      if (frame_end) WriteTail(packet + 1059, packet[1077]);
      on_frame(frame_time_);
      point_count_ = 0;
      running_time_ = frame_time_ = 0.0;
    }
    const uint32_t stamp = U24(packet + 1092);
    if (imu_stamp_ == 0 || stamp != imu_stamp_) {
      imu_stamp_ = stamp;
      PublishImu(t, packet + 1065, packet + 1071, 0.000173611);
    }
    return frame_end;
  }

  bool DecodeNV2(const uint8_t* packet, uint16_t start) {
    const double t = UtcSeconds(packet + 1210);
    const uint8_t line = packet[24];
    bool frame_end = false;
    for (int k = start; k < 192; ++k) {
      if (LineFell(line)) frame_end = true;
      const int32_t az = static_cast<int32_t>(6000 - k * 62.5);
      const int32_t el = static_cast<int32_t>(line * 53.5714286 - 1500.0);
      const float d =
          std::fmax(0.0F, static_cast<float>(static_cast<double>(U16(packet + 30 + 6 * k)) * 0.009375 - 2.0));
      PointT point{};
      Project(point, d, az, el, -el);
      Push(point, U16(packet + 28 + 6 * k) & 0xFFFU, line, t);
    }
    if (frame_end) on_frame(t);
    if (std::memcmp(imu_words_, packet + 1197, sizeof(imu_words_)) != 0) {
      std::memcpy(imu_words_, packet + 1197, sizeof(imu_words_));
      PublishImu(t, packet + 1197, packet + 1203, 2.0345e-05);
    }
    return frame_end;
  }

  bool DecodeTS4A(const uint8_t* packet, uint16_t start) {
    bool frame_end = false;
    for (int k = start; k < 32; ++k) {
      if (packet[25 + 25 * k] == 0x7F && packet[26 + 25 * k] == 0xBF) frame_end = true;
      if (cloud != nullptr) cloud->points.push_back(PointT{});
    }
    if (frame_end) on_frame(0.0);
    return frame_end;
  }

  bool LineFell(uint8_t line) {
    const bool fell = started_ && line < previous_line_;
    started_ = true;
    previous_line_ = line;
    return fell;
  }

  const LidarType model_;
  const DecoderParam param_;
  const float* const sine_;
  const float* const cosine_;
  double mounting_[3][4];
  std::vector<float> azimuth_ = std::vector<float>(tevoro::lidar::CALIB_TABLE_ENTRIES);
  std::vector<float> elevation_ = std::vector<float>(tevoro::lidar::CALIB_TABLE_ENTRIES);
  float weight_[4] = {};
  float near_filter_[8] = {0, 0, 0, 0, 5.0F, 5.0F, 2.0F, 0};
  uint32_t block_counter_ = 0;
  uint32_t point_count_ = 0;
  double running_time_ = 0.0;
  double frame_time_ = 0.0;
  uint32_t imu_stamp_ = 0;
  uint8_t imu_words_[12] = {};
  bool started_ = false;  ///< a line or a frame counter is known
  uint8_t previous_line_ = 0;
  uint32_t frame_counter_ = 0;
};

template <typename PC>
std::unique_ptr<ReferenceDecoder<PC>> MakeReference(LidarType model, const DecoderParam& param) {
  return std::make_unique<ReferenceDecoder<PC>>(model, param);
}

}  // namespace orva::test
