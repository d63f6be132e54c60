// SPDX-License-Identifier: Apache-2.0
#include "messages/cdr.h"

#include <bit>
#include <cstddef>
#include <string>
#include <type_traits>

namespace orva::messages {
namespace {

static_assert(std::endian::native == std::endian::little, "numbers are written as they lie in memory");

constexpr std::size_t kHeaderSize = 4;

class CdrWriter {
 public:
  explicit CdrWriter(std::vector<std::uint8_t>& bytes) : bytes_(bytes) { bytes_.assign({0, 1, 0, 0}); }

  template <typename T>
  CdrWriter& operator<<(const T& number) {
    static_assert(std::is_arithmetic_v<T>);
    const std::size_t size = bytes_.size() - kHeaderSize;
    bytes_.resize(kHeaderSize + (size + sizeof(T) - 1) / sizeof(T) * sizeof(T));
    Append(&number, sizeof(T));
    return *this;
  }
  CdrWriter& operator<<(const std::string& text) {
    *this << static_cast<std::uint32_t>(text.size() + 1);  // the closing zero counts
    Append(text.c_str(), text.size() + 1);
    return *this;
  }
  CdrWriter& operator<<(const std::vector<std::uint8_t>& data) {
    *this << static_cast<std::uint32_t>(data.size());
    Append(data.data(), data.size());
    return *this;
  }
  template <typename T>
  CdrWriter& operator<<(const std::vector<T>& sequence) {
    *this << static_cast<std::uint32_t>(sequence.size());
    for (const T& element : sequence) {
      *this << element;
    }
    return *this;
  }
  CdrWriter& operator<<(const std::array<double, 9>& matrix) {
    for (const double number : matrix) {
      *this << number;
    }
    return *this;
  }
  CdrWriter& operator<<(const Header& header) {
    return *this << header.stamp.sec << header.stamp.nanosec << header.frame_id;
  }
  CdrWriter& operator<<(const Vector3& vector) { return *this << vector.x << vector.y << vector.z; }
  CdrWriter& operator<<(const Quaternion& q) { return *this << q.x << q.y << q.z << q.w; }
  CdrWriter& operator<<(const PointField& field) {
    return *this << field.name << field.offset << field.datatype << field.count;
  }
  CdrWriter& operator<<(const KeyValue& pair) { return *this << pair.key << pair.value; }
  CdrWriter& operator<<(const DiagnosticStatus& status) {
    return *this << status.level << status.name << status.message << status.hardware_id << status.values;
  }

 private:
  void Append(const void* data, std::size_t size) {
    const auto* begin = static_cast<const std::uint8_t*>(data);
    bytes_.insert(bytes_.end(), begin, begin + size);
  }

  std::vector<std::uint8_t>& bytes_;
};

}  // namespace

void WriteCdr(const PointCloud2& message, std::vector<std::uint8_t>& bytes) {
  bytes.reserve(message.data.size() + 512);
  CdrWriter(bytes) << message.header << message.height << message.width << message.fields
                   << message.is_bigendian << message.point_step << message.row_step << message.data
                   << message.is_dense;
}

void WriteCdr(const Imu& message, std::vector<std::uint8_t>& bytes) {
  CdrWriter(bytes) << message.header << message.orientation << message.orientation_covariance
                   << message.angular_velocity << message.angular_velocity_covariance
                   << message.linear_acceleration << message.linear_acceleration_covariance;
}

void WriteCdr(const DiagnosticArray& message, std::vector<std::uint8_t>& bytes) {
  CdrWriter(bytes) << message.header << message.status;
}

}  // namespace orva::messages
