// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "manager/orva_driver_sdk.h"

namespace tevoro::lidar {

/// Replays a recording frame by frame on request, after one pass over the file that finds the frames.
template <typename PC>
class PcapManager : public DriverManager<PC> {
 public:
  PcapManager();
  ~PcapManager() override;

  bool Init(const DriverParam& param) override;
  bool Start() override;
  void Stop() override;
  bool GetLocalFileStatus(int& status) override;
  bool PlayLocalFileFrame(const int& frame) override;
  bool GetStatistics(DriverStatistics& statistics) const override;

 private:
  class Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace tevoro::lidar
