// SPDX-License-Identifier: Apache-2.0
//
// Reading with Cyclone DDS.
#pragma once

#include <dds/dds.h>

#include <string>

#include "participant.h"

namespace orva::ros2::test {

enum class Quality { kReliable, kBestEffort, kLatched };

/// `topic` as ROS 2 names it, an absolute path.
inline dds_entity_t MakeReader(const Participant& participant, const dds_topic_descriptor_t& type,
                               const std::string& topic, Quality quality) {
  dds_qos_t* qos = dds_create_qos();
  dds_qset_reliability(
      qos, quality == Quality::kBestEffort ? DDS_RELIABILITY_BEST_EFFORT : DDS_RELIABILITY_RELIABLE,
      DDS_SECS(1));
  dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, 1000);
  dds_qset_durability(
      qos, quality == Quality::kLatched ? DDS_DURABILITY_TRANSIENT_LOCAL : DDS_DURABILITY_VOLATILE);
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

}  // namespace orva::ros2::test
