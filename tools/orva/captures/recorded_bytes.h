// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_RECORDED_BYTES_H_
#define ORVA_TOOLS_CAPTURES_RECORDED_BYTES_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace orva {

/// The bytes of a recording as they were before gzip or zstd packed them. What is not packed passes as it is.
class RecordedBytes {
 public:
  virtual ~RecordedBytes() = default;
  /// Fills `to` as far as there is something; 0 at the end.
  virtual size_t Read(uint8_t* to, size_t size) = 0;
  /// Why the bytes ended too early; empty where they did not.
  const std::string& damage() const { return damage_; }

 protected:
  std::string damage_;
};

/// Stands for standard input where a path is expected.
inline constexpr const char* kStandardInput = "-";

/// Opens a file or standard input. Throws Failure with the reason.
std::unique_ptr<RecordedBytes> OpenRecordedBytes(const std::string& path);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_RECORDED_BYTES_H_
