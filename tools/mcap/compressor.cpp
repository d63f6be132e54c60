// SPDX-License-Identifier: Apache-2.0
#include "mcap/compressor.h"

#include <lz4frame.h>
#include <zstd.h>

namespace orva::mcap {
namespace {

class Lz4Compressor : public Compressor {
 public:
  bool Compress(Bytes bytes, std::vector<std::uint8_t>& packed) override {
    LZ4F_preferences_t preferences = LZ4F_INIT_PREFERENCES;
    preferences.frameInfo.contentSize = bytes.size();
    packed.resize(LZ4F_compressFrameBound(bytes.size(), &preferences));
    const std::size_t size =
        LZ4F_compressFrame(packed.data(), packed.size(), bytes.data(), bytes.size(), &preferences);
    packed.resize(LZ4F_isError(size) != 0 ? 0 : size);
    return !packed.empty() && packed.size() < bytes.size();
  }
  const char* name() const override { return "lz4"; }
};

class ZstdCompressor : public Compressor {
 public:
  explicit ZstdCompressor(int level) : level_(level), context_(ZSTD_createCCtx(), ZSTD_freeCCtx) {}
  bool Compress(Bytes bytes, std::vector<std::uint8_t>& packed) override {
    if (context_ == nullptr) {
      return false;
    }
    packed.resize(ZSTD_compressBound(bytes.size()));
    const std::size_t size =
        ZSTD_compressCCtx(context_.get(), packed.data(), packed.size(), bytes.data(), bytes.size(), level_);
    packed.resize(ZSTD_isError(size) != 0 ? 0 : size);
    return !packed.empty() && packed.size() < bytes.size();
  }
  const char* name() const override { return "zstd"; }

 private:
  int level_;
  std::unique_ptr<ZSTD_CCtx, std::size_t (*)(ZSTD_CCtx*)> context_;
};

}  // namespace

std::unique_ptr<Compressor> MakeCompressor(Compression compression, int level) {
  switch (compression) {
    case Compression::kLz4:
      return std::make_unique<Lz4Compressor>();
    case Compression::kZstd:
      return std::make_unique<ZstdCompressor>(level);
    case Compression::kNone:
      break;
  }
  return nullptr;
}

}  // namespace orva::mcap
