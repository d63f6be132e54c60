// SPDX-License-Identifier: Apache-2.0
//
// Looks at a DDS domain for some seconds and prints, a line each: what is published in which quality, as
// discovery tells it; the transforms and the names of the diagnostics that arrive; how many clouds did.
// Usage: topic_reader SECONDS [NAMESPACE]
#include <ros2_types.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "cyclone.h"
#include "participant.h"

namespace {

using namespace orva::ros2;
using namespace orva::ros2::test;

std::string Describe(const dds_builtintopic_endpoint_t& writer) {
  dds_reliability_kind_t reliability = {};
  dds_durability_kind_t durability = {};
  dds_history_kind_t history = {};
  int32_t depth = 0;
  dds_duration_t blocking = 0;
  uint32_t representations = 0;
  dds_data_representation_id_t* representation = nullptr;
  dds_qget_reliability(writer.qos, &reliability, &blocking);
  dds_qget_durability(writer.qos, &durability);
  dds_qget_history(writer.qos, &history, &depth);
  dds_qget_data_representation(writer.qos, &representations, &representation);
  std::string text = std::string(writer.topic_name) + " " + writer.type_name;
  text += reliability == DDS_RELIABILITY_RELIABLE ? " reliable" : " best-effort";
  text += history == DDS_HISTORY_KEEP_LAST ? " last-" + std::to_string(depth) : " all";
  text += durability == DDS_DURABILITY_VOLATILE ? " volatile" : " transient-local";
  for (uint32_t i = 0; i < representations; ++i)
    text += representation[i] == DDS_DATA_REPRESENTATION_XCDR1 ? " XCDR1" : " XCDR2";
  dds_free(representation);
  const dds_typeinfo_t* type = nullptr;
  const bool typed = dds_builtintopic_get_endpoint_type_info(
                         const_cast<dds_builtintopic_endpoint_t*>(&writer), &type) == DDS_RETCODE_OK &&
                     type != nullptr;
  return text + (typed ? " typed" : " untyped");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string space = argc > 2 ? argv[2] : "";
  const Participant participant;
  const dds_entity_t writers =
      dds_create_reader(participant.get(), DDS_BUILTIN_TOPIC_DCPSPUBLICATION, nullptr, nullptr);
  const dds_entity_t mountings =
      MakeReader(participant, tf2_msgs_msg_dds__TFMessage__desc, "/tf_static", Quality::kLatched);
  const dds_entity_t reports = MakeReader(participant, diagnostic_msgs_msg_dds__DiagnosticArray__desc,
                                          "/diagnostics", Quality::kReliable);
  MakeReader(participant, sensor_msgs_msg_dds__Imu__desc, space + "/imu/data_raw", Quality::kReliable);
  const dds_entity_t points =
      MakeReader(participant, sensor_msgs_msg_dds__PointCloud2__desc, space + "/points", Quality::kReliable);
  std::map<std::array<uint8_t, 16>, std::string> announced;
  std::multiset<std::string> lines;
  int clouds = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[1]));
  while (std::chrono::steady_clock::now() < end) {
    TakeAll<dds_builtintopic_endpoint_t>(writers, [&](const auto& writer) {
      std::array<uint8_t, 16> key;
      std::copy(writer.key.v, writer.key.v + 16, key.begin());
      announced[key] = Describe(writer);
    });
    TakeAll<tf2_msgs_msg_dds__TFMessage_>(mountings, [&](const auto& message) {
      for (uint32_t i = 0; i < message.transforms_._length; ++i) {
        const auto& found = message.transforms_._buffer[i];
        const auto& t = found.transform.translation_;
        const auto& q = found.transform.rotation_;
        char text[256];
        std::snprintf(text, sizeof text, "transform %s to %s: %.3f %.3f %.3f, %.4f %.4f %.4f %.4f",
                      found.header_.frame_id_, found.child_frame_id_, t.x_, t.y_, t.z_, q.x_, q.y_, q.z_,
                      q.w_);
        if (!lines.contains(text)) lines.insert(text);
      }
    });
    TakeAll<diagnostic_msgs_msg_dds__DiagnosticArray_>(reports, [&](const auto& message) {
      for (uint32_t i = 0; i < message.status_._length; ++i) {
        const auto& status = message.status_._buffer[i];
        const std::string line = std::string("status of ") + status.name_ + ", " + status.hardware_id_ +
                                 ": " + std::to_string(status.values_._length) + " values";
        if (!lines.contains(line)) lines.insert(line);
      }
    });
    TakeAll<sensor_msgs_msg_dds__PointCloud2_>(points, [&](const auto&) { ++clouds; });
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  for (const auto& [key, line] : announced) lines.insert(line);
  for (const std::string& line : lines) std::puts(line.c_str());
  std::printf("%d clouds\n", clouds);
}
