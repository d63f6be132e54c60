// SPDX-License-Identifier: Apache-2.0
#include "param/param_service.h"

#include "param/calibration_folder.h"
#include "param/calibration_stream.h"

namespace tevoro::lidar {

/// Some 2 MB: lives on the heap, never on a stack.
class ParamService::Impl {
 public:
  CheckParam* GetCheckParam(LidarType type) {
    switch (type) {
      case KR7:
        return &kr7_;
      case NV2:
        return &nv2_;
      case TS4A:
        return &ts4a_;
      case TS4B:
        return &ts4b_;
      case TS4:
        return &ts4_;
      case TS6:
        return &ts6_;
    }
    return nullptr;  // Unreached: no decoder is made of another model, so nobody asks
  }

  CalibrationStream stream_;

 private:
  // KR7 and NV2 use the check flag alone. Full records all the same: a pointer to a CheckParam then
  // points to one.
  CheckParam nv2_;
  CheckParam kr7_;
  CheckParam ts4_;
  CheckParam ts4a_;
  CheckParam ts4b_;
  CheckParam ts6_;
};

ParamService::ParamService() : impl_(std::make_shared<Impl>()) {}

ParamService::~ParamService() = default;

bool ParamService::LoadCheckFolder(const LidarType& type, const std::string& folder) {
  CheckParam* param = GetCheckParam(type);
  return param != nullptr && LoadCalibrationFolder(type, folder, *param);
}

CheckParam* ParamService::GetCheckParam(const LidarType& type) {
  return impl_->GetCheckParam(type);
}

int ParamService::PushData(const LidarType& type, const signed char* data, int len, bool& last_chunk,
                           bool& complete) {
  return impl_->stream_.PushData(type, data, len, GetCheckParam(type), last_chunk, complete);
}

void ParamService::RestartStream() {
  impl_->stream_.Restart();
}

size_t ParamService::FilledSections(const LidarType& type, bool& all) const {
  const size_t filled = impl_->stream_.FilledSections();
  all = filled > 0 && filled == CalibrationStream::SectionsOf(type);
  return filled;
}

}  // namespace tevoro::lidar
