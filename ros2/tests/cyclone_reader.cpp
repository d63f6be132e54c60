// SPDX-License-Identifier: Apache-2.0
//
// Reads clouds and IMU samples over Cyclone DDS and compares them with what the driver delivers.
#include <dds/dds.h>
#include <ros2_types.h>

#include <chrono>
#include <thread>

#include "expected.h"
#include "participant.h"

namespace {

using namespace orva::ros2;

dds_entity_t Reader(const Participant& participant, const dds_topic_descriptor_t& type,
                    const std::string& topic, bool best_effort) {
  dds_qos_t* qos = dds_create_qos();
  dds_qset_reliability(qos, best_effort ? DDS_RELIABILITY_BEST_EFFORT : DDS_RELIABILITY_RELIABLE,
                       DDS_SECS(1));
  dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, 1000);
  const Entity made("topic",
                    dds_create_topic(participant.get(), &type, ("rt" + topic).c_str(), qos, nullptr));
  const dds_entity_t reader = dds_create_reader(participant.get(), made.get(), qos, nullptr);
  dds_delete_qos(qos);
  return reader;
}

template <typename Sample, typename Take>
void TakeAll(dds_entity_t reader, const Take& take) {
  void* samples[16] = {};
  dds_sample_info_t infos[16];
  for (dds_return_t count; (count = dds_take(reader, samples, infos, 16, 16)) > 0;) {
    for (int i = 0; i < count; ++i) {
      if (infos[i].valid_data) take(*static_cast<const Sample*>(samples[i]));
    }
    dds_return_loan(reader, samples, count);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const test::Arguments arguments = test::Arguments::Read(argc, argv);
  test::Judge judge(test::Frames(arguments.model, arguments.file, arguments.calibration));
  const Participant participant;
  const dds_entity_t points = Reader(participant, sensor_msgs_msg_dds__PointCloud2__desc,
                                     arguments.prefix + "/points", arguments.best_effort);
  const dds_entity_t imu =
      Reader(participant, sensor_msgs_msg_dds__Imu__desc, arguments.prefix + "/imu/data_raw", false);
  std::puts("reading");
  std::fflush(stdout);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(arguments.seconds);
  while (std::chrono::steady_clock::now() < end &&
         (judge.clouds() < arguments.clouds || judge.samples() < arguments.samples)) {
    TakeAll<sensor_msgs_msg_dds__PointCloud2_>(points, [&](const auto& cloud) {
      judge.Take(cloud.header_.stamp_.sec_, cloud.header_.stamp_.nanosec_, cloud.width_ * cloud.height_,
                 cloud.point_step_, cloud.data_._buffer, cloud.data_._length);
    });
    TakeAll<sensor_msgs_msg_dds__Imu_>(imu, [&](const auto& sample) {
      judge.TakeImu(sample.header_.stamp_.sec_, sample.header_.stamp_.nanosec_,
                    sample.orientation_covariance_[0]);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return judge.Verdict(arguments.clouds, arguments.samples);
}
