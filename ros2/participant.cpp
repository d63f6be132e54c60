// SPDX-License-Identifier: Apache-2.0
#include "participant.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace orva::ros2 {
namespace {

constexpr dds_domainid_t kLastDomain = 232;  // the ports of a higher one would be above 65535

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

dds_domainid_t DomainId() {
  const std::string text = Environment("ROS_DOMAIN_ID");
  if (text.empty()) return 0;
  dds_domainid_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc() || end != text.data() + text.size() || id > kLastDomain)
    throw std::invalid_argument("ROS_DOMAIN_ID is '" + text + "'. It is a number from 0 to 232.");
  return id;
}

/// The user's own settings come last and win.
std::string Settings() {
  // More than any writer keeps: so what a reader that hangs has not acknowledged makes way for newer samples,
  // and never holds a write back that the other readers wait for.
  std::string settings =
      "<CycloneDDS><Domain><Internal><Watermarks><WhcHigh>16MB</WhcHigh></Watermarks></Internal></Domain>"
      "</CycloneDDS>";
  if (Environment("ROS_LOCALHOST_ONLY") == "1") {
    settings +=
        ",<CycloneDDS><Domain><General><Interfaces><NetworkInterface address=\"127.0.0.1\"/></Interfaces>"
        "</General></Domain></CycloneDDS>";
  } else {
    // Messages that fit network packets, over IPv6 too. Of larger ones a lost packet takes ten with it, and
    // where one in a hundred is lost, sending a cloud again takes longer than the last five clouds are kept.
    settings +=
        ",<CycloneDDS><Domain><General><MaxMessageSize>1452B</MaxMessageSize></General></Domain></"
        "CycloneDDS>";
  }
  const std::string own = Environment("CYCLONEDDS_URI");
  return own.empty() ? settings : settings + ',' + own;
}

}  // namespace

Entity::Entity(const std::string& what, dds_entity_t handle) : handle_(handle) {
  if (handle < 0) throw DdsError(what, handle);
}

Entity::~Entity() {
  if (handle_ > 0) dds_delete(handle_);
}

Entity::Entity(Entity&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}

Entity& Entity::operator=(Entity&& other) noexcept {
  std::swap(handle_, other.handle_);
  return *this;
}

Participant::Participant()
    : domain_id_(DomainId()),
      domain_("cannot use the DDS domain " + std::to_string(domain_id_),
              dds_create_domain(domain_id_, Settings().c_str())),
      participant_("cannot take part in the DDS domain " + std::to_string(domain_id_),
                   dds_create_participant(domain_id_, nullptr, nullptr)) {}

Entity MakeWriter(const Participant& participant, const dds_topic_descriptor_t& type, const std::string& path,
                  Delivery delivery, int32_t depth) {
  const std::string name = "rt" + path;
  const std::unique_ptr<dds_qos_t, void (*)(dds_qos_t*)> qos(dds_create_qos(), dds_delete_qos);
  const bool latched = delivery == Delivery::kLatched;
  // A reader that does not keep up may hold a write back for so long, on a thread that only publishes.
  dds_qset_reliability(
      qos.get(), delivery == Delivery::kBestEffort ? DDS_RELIABILITY_BEST_EFFORT : DDS_RELIABILITY_RELIABLE,
      DDS_MSECS(100));
  dds_qset_history(qos.get(), DDS_HISTORY_KEEP_LAST, latched ? 1 : depth);
  dds_qset_durability(qos.get(), latched ? DDS_DURABILITY_TRANSIENT_LOCAL : DDS_DURABILITY_VOLATILE);
  const dds_data_representation_id_t representation = DDS_DATA_REPRESENTATION_XCDR1;
  dds_qset_data_representation(qos.get(), 1, &representation);
  const Entity topic("cannot make the topic " + name,
                     dds_create_topic(participant.get(), &type, name.c_str(), qos.get(), nullptr));
  return Entity("cannot write the topic " + name,
                dds_create_writer(participant.get(), topic.get(), qos.get(), nullptr));
}

}  // namespace orva::ros2
