// SPDX-License-Identifier: Apache-2.0
#include "encoders.h"

#include <chrono>

#include "calibration.h"
#include "wire.h"

namespace orva::sim {
namespace {

// Time of flight counts: 1.645 range units each, zero shifted by 2.09 range units; the fraction is in
// sixty-fourths.
constexpr double kUnitsPerCount = 1.645;
constexpr double kZeroShift = 2.09;
constexpr double kFractions = 64.0;
constexpr uint32_t kLongest = 0xFFFFFF;

constexpr double kAccelerationCount = 0.004788403;  // metres per second squared

// The pulse's width grows with its height, more slowly: strong echoes have the greater ratio.
uint32_t PulseDivisor(const Measurement& block) {
  return 512 + block.intensity / 4;
}

// A beam without return counts no time at all.
uint32_t TimeOfFlight(double raw_distance, double metres_per_unit) {
  const double counts = (raw_distance / metres_per_unit + kZeroShift) / kUnitsPerCount;
  return static_cast<uint32_t>(std::clamp(std::round(counts * kFractions), 0.0, double{kLongest}));
}

// The code doubles as the frame-end marker: 7F BF is the last beam of the grid.
void PutCode(uint8_t* at, const Measurement& block) {
  at[0] = static_cast<uint8_t>(block.column);
  at[1] = static_cast<uint8_t>(block.line);
}

void PutTemperature(uint8_t* at, double celsius) {
  PutU16(at, static_cast<uint32_t>(std::clamp(std::round((celsius + 64.0) / 0.0625), 0.0, 65535.0)));
}

void PutUtc(uint8_t* at, int64_t time_ns) {
  using namespace std::chrono;
  const sys_time<microseconds> time{microseconds{time_ns / 1000}};
  const auto day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{floor<seconds>(time) - day};
  PutU24(at, static_cast<uint32_t>((time - floor<seconds>(time)).count()));
  PutU16(at + 3, static_cast<uint32_t>(static_cast<int>(date.year())));
  at[5] = static_cast<uint8_t>(static_cast<unsigned>(date.month()));
  at[6] = static_cast<uint8_t>(static_cast<unsigned>(date.day()));
  at[7] = static_cast<uint8_t>(clock.hours().count());
  at[8] = static_cast<uint8_t>(clock.minutes().count());
  at[9] = static_cast<uint8_t>(clock.seconds().count());
}

// The IMU chip sits turned in the housing: its axes 0, 1 and 2 point along the sensor's y, against its z and
// against its x. Accelerations come first, then rates.
void PutImu(uint8_t* at, const ImuSample& sample, double rate_count) {
  const auto put = [](uint8_t* axes, const Vec3& v, double count) {
    PutCount(axes, v.y, count);
    PutCount(axes + 2, -v.z, count);
    PutCount(axes + 4, -v.x, count);
  };
  put(at, sample.specific_force, kAccelerationCount);
  put(at + 6, sample.angular_rate, rate_count);
}

}  // namespace

void EncodeTs4b(const PacketContent& content, const Calibration& calibration, uint8_t* packet) {
  constexpr size_t kStride = 40;
  constexpr double kMetresPerUnit = 0.15;
  for (size_t k = 0; k < content.blocks.size(); ++k) {
    const Measurement& block = content.blocks[k];
    uint8_t* base = packet + kStride * k;
    const uint32_t divisor = PulseDivisor(block);
    const uint32_t pulse_sum = 3 * block.intensity + 64;
    PutCode(base + 25, block);
    PutU16(base + 27, divisor);
    if (!block.returned) continue;
    const double raw = calibration.Uncorrected(block.distance, static_cast<double>(pulse_sum) / divisor);
    PutU24(base + 34, TimeOfFlight(raw, kMetresPerUnit));
    PutU24(base + 37, block.intensity);
    PutU24(base + 43, pulse_sum);
  }
  PutU16(packet + 1315, content.housekeeping.status_word);
  PutTemperature(packet + 1317, content.housekeeping.temperature_a);
  PutTemperature(packet + 1319, content.housekeeping.temperature_b);
  packet[1333] = content.housekeeping.status_byte;
}

void EncodeTs6(const PacketContent& content, const Calibration& calibration, uint8_t* packet) {
  constexpr size_t kFirst = 25;
  constexpr size_t kStride = 16;
  constexpr double kMetresPerUnit = 0.149896229;
  constexpr double kRateCount = 0.000173611 * std::numbers::pi;  // radians per second
  for (size_t k = 0; k < content.blocks.size(); ++k) {
    const Measurement& block = content.blocks[k];
    uint8_t* base = packet + kFirst + kStride * k;
    const uint32_t divisor = PulseDivisor(block);
    PutCode(base, block);
    PutU16(base + 2, divisor);
    if (!block.returned) continue;
    const double raw =
        calibration.Uncorrected(block.distance, static_cast<double>(block.intensity) / divisor);
    PutU24(base + 6, TimeOfFlight(raw, kMetresPerUnit));
    PutU24(base + 9, 2 * block.intensity + 100);  // the near filter's view, before the background is removed
    PutU24(base + 12, block.intensity);
  }
  PutU16(packet + 1059, content.housekeeping.status_word);
  PutTemperature(packet + 1061, content.housekeeping.temperature_a);
  PutTemperature(packet + 1063, content.housekeeping.temperature_b);
  PutImu(packet + 1065, content.imu, kRateCount);
  packet[1077] = content.housekeeping.status_byte;
  PutUtc(packet + 1078, content.time_ns);
  PutU24(packet + 1092, content.imu.stamp);
}

void EncodeNv2(const PacketContent& content, const Calibration&, uint8_t* packet) {
  constexpr size_t kFirst = 28;
  constexpr size_t kStride = 6;
  constexpr double kMetresPerCode = 0.009375;
  constexpr double kZeroCode = 2.0;  // metres
  constexpr double kRateCount = 2.0345e-05 * std::numbers::pi;
  packet[24] = static_cast<uint8_t>(content.blocks.front().line);
  for (size_t k = 0; k < content.blocks.size(); ++k) {
    const Measurement& block = content.blocks[k];
    if (!block.returned) continue;
    const double code = std::round((block.distance + kZeroCode) / kMetresPerCode);
    PutU16(packet + kFirst + kStride * k, block.intensity);
    PutU16(packet + kFirst + kStride * k + 2, static_cast<uint32_t>(std::clamp(code, 0.0, 65535.0)));
  }
  PutImu(packet + 1197, content.imu, kRateCount);
  PutUtc(packet + 1210, content.time_ns);
}

void EncodeTs4a(const PacketContent& content, const Calibration&, uint8_t* packet) {
  constexpr size_t kFirst = 25;
  constexpr size_t kStride = 25;
  for (size_t k = 0; k < content.blocks.size(); ++k)
    PutCode(packet + kFirst + kStride * k, content.blocks[k]);
}

void EncodeKr7(const PacketContent& content, const Calibration&, uint8_t* packet) {
  // The counter counts frames downwards: a receiver sees a new frame when it falls.
  PutU16(packet + 26, 0xFFFFU - static_cast<uint32_t>(content.frame & 0xFFFF));
}

void EncodeTs4(const PacketContent&, const Calibration&, uint8_t*) {}

}  // namespace orva::sim
