// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dds/dds.h>

#include <stdexcept>
#include <string>

namespace orva::ros2 {

/// DDS refused something: what, and its reason.
class DdsError : public std::runtime_error {
 public:
  DdsError(const std::string& what, dds_return_t code)
      : std::runtime_error(what + ": " + dds_strretcode(code)) {}
};

/// A DDS entity, deleted with this object, and with it what was made from it.
class Entity {
 public:
  /// Throws DdsError for a handle that stands for an error.
  Entity(const std::string& what, dds_entity_t handle);
  ~Entity();
  Entity(Entity&& other) noexcept;
  Entity& operator=(Entity&& other) noexcept;

  dds_entity_t get() const { return handle_; }

 private:
  dds_entity_t handle_;
};

/// What this process is to the others. One is enough for any number of sensors.
class Participant {
 public:
  /// The domain is ROS_DOMAIN_ID (0 to 232; 0 without it). ROS_LOCALHOST_ONLY=1 keeps to this machine. Throws
  /// std::invalid_argument for what is no domain, and DdsError.
  Participant();

  dds_entity_t get() const { return participant_.get(); }
  dds_domainid_t domain() const { return domain_id_; }

 private:
  dds_domainid_t domain_id_;
  Entity domain_;
  Entity participant_;
};

/// How a topic's samples travel.
enum class Delivery {
  kReliable,    ///< serves reliable and best-effort readers
  kBestEffort,  ///< gives a reliable reader nothing
  kLatched,     ///< reliable, keeps the last one for readers that come later
};

/// How many samples a writer keeps for readers that ask for one again.
constexpr int32_t kDepth = 5;
/// Half a second of the fastest IMU: the usual 5 would be overwritten before a lost one can be sent again.
constexpr int32_t kImuDepth = 100;

/// Writer of a topic named as ROS 2 names it: "rt" and an absolute path. Throws DdsError.
Entity MakeWriter(const Participant& participant, const dds_topic_descriptor_t& type, const std::string& path,
                  Delivery delivery, int32_t depth = kDepth);

}  // namespace orva::ros2
