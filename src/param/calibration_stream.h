// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "orva_driver.h"
#include "param/check_param.h"

namespace tevoro::lidar {

/// Puts the replies of a calibration download together and parses the section stream that they carry.
///
/// The sensor is not trusted: nothing is read beyond the bytes received, and an announced length reserves no
/// memory.
class CalibrationStream {
 public:
  /// Takes one reply; results as in ParamService::PushData. `record` is filled when the stream is complete;
  /// models without sections of their own may pass null.
  int PushData(const LidarType& type, const signed char* data, int len, CheckParam* record, bool& last_chunk,
               bool& complete);

  /// Forgets what has come of a stream that was broken off.
  void Restart();

  /// Sections that a model takes: four, or none.
  static size_t SectionsOf(const LidarType& type);
  /// How many of them the completed stream has filled.
  size_t FilledSections() const { return filled_sections_; }

 private:
  /// Where a section's marker stands in the stream.
  struct IndexParam {
    uint32_t position;
    std::string marker;
  };
  /// Content of a section.
  struct FlagCheckParamBuffer {
    std::span<const signed char> bytes;
  };
  using Sections = std::map<std::string, FlagCheckParamBuffer>;

  static std::span<const char* const> GetFlags(const LidarType& type);
  static void Sort(std::vector<IndexParam>& index);
  /// Returns how many fields it filled.
  static size_t FillCheckParam(const LidarType& type, const Sections& sections, CheckParam* record);

  void Append(const signed char* payload, int32_t bytes, int32_t total);
  std::vector<IndexParam> FindMarkers(const LidarType& type) const;
  Sections CutSections(const std::vector<IndexParam>& index) const;

  int32_t stream_total_ = 0;     ///< announced bytes of the stream; 0: not yet known
  int32_t stream_received_ = 0;  ///< bytes counted, more than are stored where a sensor exaggerates
  std::vector<signed char> stream_bytes_;
  size_t filled_sections_ = 0;
};

}  // namespace tevoro::lidar
