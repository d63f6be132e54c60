// SPDX-License-Identifier: Apache-2.0
//
// The same over Fast DDS: another maker's implementation, with types from its own generator.
#include <ros2_typesPubSubTypes.h>

#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <chrono>
#include <cstdlib>
#include <fastdds/dds/domain/DomainParticipant.hpp>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>
#include <fastdds/dds/subscriber/DataReader.hpp>
#include <fastdds/dds/subscriber/SampleInfo.hpp>
#include <fastdds/dds/subscriber/Subscriber.hpp>
#include <fastdds/dds/topic/Topic.hpp>
#include <thread>

#include "expected.h"

namespace {

using namespace eprosima::fastdds::dds;
using namespace orva::ros2;

/// Over UDP alone, so that no shared memory hides a failure of it.
DomainParticipant* MakeParticipant(bool localhost) {
  DomainParticipantQos qos;
  const auto udp = std::make_shared<eprosima::fastdds::rtps::UDPv4TransportDescriptor>();
  udp->receiveBufferSize = 4'194'304;
  if (localhost) udp->interfaceWhiteList.emplace_back("127.0.0.1");
  qos.transport().use_builtin_transports = false;
  qos.transport().user_transports.push_back(udp);
  qos.transport().listen_socket_buffer_size = 4'194'304;
  const char* domain = std::getenv("ROS_DOMAIN_ID");
  return DomainParticipantFactory::get_instance()->create_participant(
      static_cast<uint32_t>(domain != nullptr ? std::atoi(domain) : 0), qos);
}

DataReader* MakeReader(DomainParticipant& participant, Subscriber& subscriber, TypeSupport type,
                       const std::string& topic, bool best_effort) {
  type.register_type(&participant);
  Topic* made = participant.create_topic("rt" + topic, type.get_type_name(), TOPIC_QOS_DEFAULT);
  DataReaderQos qos;
  qos.reliability().kind = best_effort ? BEST_EFFORT_RELIABILITY_QOS : RELIABLE_RELIABILITY_QOS;
  qos.history().kind = KEEP_LAST_HISTORY_QOS;
  qos.history().depth = 500;
  return subscriber.create_datareader(made, qos);
}

template <typename Sample, typename Take>
void TakeAll(DataReader& reader, Sample& sample, const Take& take) {
  SampleInfo info;
  while (reader.take_next_sample(&sample, &info) == ReturnCode_t::RETCODE_OK) {
    if (info.valid_data) take(sample);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const test::Arguments arguments = test::Arguments::Read(argc, argv);
  test::Judge judge(test::Deliver(arguments.model, arguments.file, arguments.calibration));
  const char* localhost = std::getenv("ROS_LOCALHOST_ONLY");
  DomainParticipant* participant = MakeParticipant(localhost != nullptr && std::string(localhost) == "1");
  if (participant == nullptr) return 1;
  Subscriber* subscriber = participant->create_subscriber(SUBSCRIBER_QOS_DEFAULT);
  sensor_msgs::msg::dds_::PointCloud2_ cloud;
  sensor_msgs::msg::dds_::Imu_ sample;
  DataReader* points =
      MakeReader(*participant, *subscriber, TypeSupport(new sensor_msgs::msg::dds_::PointCloud2_PubSubType),
                 arguments.prefix + "/points", arguments.best_effort);
  DataReader* imu =
      MakeReader(*participant, *subscriber, TypeSupport(new sensor_msgs::msg::dds_::Imu_PubSubType),
                 arguments.prefix + "/imu/data_raw", arguments.best_effort);
  if (points == nullptr || imu == nullptr) return 1;
  std::puts("reading");
  std::fflush(stdout);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(arguments.seconds);
  while (std::chrono::steady_clock::now() < end &&
         (judge.clouds() < arguments.clouds || judge.samples() < arguments.samples)) {
    TakeAll(*points, cloud, [&](const auto& taken) {
      judge.Take(taken.header_().stamp_().sec_(), taken.header_().stamp_().nanosec_(),
                 taken.width_() * taken.height_(), taken.point_step_(), taken.data_().data(),
                 taken.data_().size());
    });
    TakeAll(*imu, sample, [&](const auto& taken) {
      const auto& rate = taken.angular_velocity_();
      const auto& force = taken.linear_acceleration_();
      judge.TakeImu(taken.header_().stamp_().sec_(), taken.header_().stamp_().nanosec_(),
                    {rate.x_(), rate.y_(), rate.z_(), force.x_(), force.y_(), force.z_()},
                    taken.orientation_covariance_()[0]);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  participant->delete_contained_entities();
  DomainParticipantFactory::get_instance()->delete_participant(participant);
  return judge.Verdict(arguments.clouds, arguments.samples);
}
