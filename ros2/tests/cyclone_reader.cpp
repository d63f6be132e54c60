// SPDX-License-Identifier: Apache-2.0
//
// Reads clouds and IMU samples over Cyclone DDS and compares them with what the driver delivers.
#include <ros2_types.h>

#include <chrono>
#include <thread>

#include "cyclone.h"
#include "expected.h"
#include "participant.h"

using namespace orva::ros2;

int main(int argc, char** argv) {
  const test::Arguments arguments = test::Arguments::Read(argc, argv);
  test::Judge judge(test::Deliver(arguments.model, arguments.file, arguments.calibration));
  const Participant participant;
  const test::Quality quality = arguments.best_effort ? test::Quality::kBestEffort : test::Quality::kReliable;
  const dds_entity_t points = test::MakeReader(participant, sensor_msgs_msg_dds__PointCloud2__desc,
                                               arguments.prefix + "/points", quality);
  const dds_entity_t imu = test::MakeReader(participant, sensor_msgs_msg_dds__Imu__desc,
                                            arguments.prefix + "/imu/data_raw", quality);
  std::puts("reading");
  std::fflush(stdout);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(arguments.seconds);
  while (std::chrono::steady_clock::now() < end &&
         (judge.clouds() < arguments.clouds || judge.samples() < arguments.samples)) {
    test::TakeAll<sensor_msgs_msg_dds__PointCloud2_>(points, [&](const auto& cloud) {
      judge.Take(cloud.header_.stamp_.sec_, cloud.header_.stamp_.nanosec_, cloud.width_ * cloud.height_,
                 cloud.point_step_, cloud.data_._buffer, cloud.data_._length);
    });
    test::TakeAll<sensor_msgs_msg_dds__Imu_>(imu, [&](const auto& sample) {
      const auto& rate = sample.angular_velocity_;
      const auto& force = sample.linear_acceleration_;
      judge.TakeImu(sample.header_.stamp_.sec_, sample.header_.stamp_.nanosec_,
                    {rate.x_, rate.y_, rate.z_, force.x_, force.y_, force.z_},
                    sample.orientation_covariance_[0]);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return judge.Verdict(arguments.clouds, arguments.samples);
}
