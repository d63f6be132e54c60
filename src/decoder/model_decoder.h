// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "decoder/decoder.h"

namespace tevoro::lidar {

/// A model's decoder: the base over the model's constants, forwarding to the model's own implementation.
template <typename PC, typename ModelImpl>
class ModelDecoder : public Decoder<PC> {
 public:
  using Impl = ModelImpl;

  explicit ModelDecoder(const DecoderParam& param)
      : Decoder<PC>(GetConstParam(), param), impl_(std::make_shared<Impl>(this)) {}

  static const DecoderConstParam& GetConstParam() { return Impl::kConst; }

  bool DecodeMsopPacket(const uint8_t* data, size_t len, uint16_t start) override {
    return impl_->DecodeMsopPacket(data, len, start);
  }
  void EnableFinallyFrame() override { impl_->EnableFinallyFrame(); }
  bool SplitFrame(const uint8_t* data, size_t len, uint16_t& seq) override {
    return impl_->SplitFrame(data, len, seq);
  }
  void UpdateCheckParam(CheckParam* param) override { impl_->UpdateCheckParam(param); }

  Impl& GetImpl() { return *impl_; }

 private:
  const std::shared_ptr<Impl> impl_;
};

}  // namespace tevoro::lidar
