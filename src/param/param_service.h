// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "orva_driver.h"
#include "param/check_param.h"

namespace tevoro::lidar {

/// Owns one calibration record per model and fills it from a folder or from the sensor's stream. Has no lock:
/// whoever fills a record must have ended before another thread reads it.
class ParamService {
 public:
  ParamService();
  ParamService(const ParamService&) = delete;
  ParamService& operator=(const ParamService&) = delete;
  virtual ~ParamService();

  /// Fills the model's record from the text files below `folder`. True only when exactly the four kinds of
  /// file were found and long enough; false also for models without calibration files. What was loaded
  /// before a failure stays. Throws std::filesystem::filesystem_error when a folder cannot be read.
  bool LoadCheckFolder(const LidarType& type, const std::string& folder);

  /// The model's record; valid as long as the service. Null for an unknown model.
  CheckParam* GetCheckParam(const LidarType& type);

  /// Takes one reply of the calibration download. Returns the number of bytes to request next, 0 when the
  /// stream is complete and the record filled (`complete` is set), -1 for a reply without the magic
  /// word (both flags untouched). `last_chunk`: the next request completes the stream.
  int PushData(const LidarType& type, const signed char* data, int len, bool& last_chunk, bool& complete);

  /// Forgets the replies of a download that was broken off: the next one is the first of a new stream.
  void RestartStream();
  /// Sections of the model that the completed download has filled; `all`: no one lacks. A model that takes
  /// none is never filled.
  size_t FilledSections(const LidarType& type, bool& all) const;

 private:
  class Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace tevoro::lidar
