// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "decoder/decoder.h"

namespace tevoro::lidar {

/// A model's decoder: the base over the model's constants, forwarding to the model's own implementation.
/// DecoderKR7 and its like are names for it.
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

 private:
  const std::shared_ptr<Impl> impl_;
};

/// Base of the implementations: a model that yields no points, knows no frame end but the end of input, and
/// takes no calibration. A model hides what it does otherwise.
template <typename PC, typename ModelDescription>
class ModelImpl {
 public:
  using Model = ModelDescription;
  static constexpr const DecoderConstParam& kConst = Model::kConst;

  explicit ModelImpl(Decoder<PC>* owner) : owner_(owner) {}
  ModelImpl(const ModelImpl&) = delete;
  ModelImpl& operator=(const ModelImpl&) = delete;

  bool DecodeMsopPacket(const uint8_t*, size_t, uint16_t) { return false; }
  void EnableFinallyFrame() { owner_->split_cb_(kConst.LASER_NUM, 0.0); }
  bool SplitFrame(const uint8_t*, size_t, uint16_t&) { return false; }
  void UpdateCheckParam(const CheckParam*) {}

 protected:
  Decoder<PC>* const owner_;
};

}  // namespace tevoro::lidar
