// SPDX-License-Identifier: Apache-2.0
#include "captures/recorded_bytes.h"

#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

#include "captures/capture_check.h"
#include "shared/failure.h"

namespace orva {
namespace {

/// A file read in pieces, whose first bytes can be looked at before.
class Pieces {
 public:
  explicit Pieces(RecordingFile file) : file_(std::move(file)) { Refill(); }

  const uint8_t* data() const { return piece_.data() + used_; }
  size_t size() const { return filled_ - used_; }
  void Use(size_t count) { used_ += count; }
  int error() const { return error_; }

  /// Makes sure of at least one byte, but at the end of the file.
  bool More() {
    if (size() == 0) Refill();
    return size() > 0;
  }

 private:
  void Refill() {
    used_ = 0;
    errno = 0;
    filled_ = std::fread(piece_.data(), 1, piece_.size(), file_.get());
    if (std::ferror(file_.get()) != 0) error_ = errno;
  }

  RecordingFile file_;
  std::array<uint8_t, 64 * 1024> piece_;
  size_t used_ = 0;
  size_t filled_ = 0;
  int error_ = 0;
};

std::string ReadError(int error) {
  return "reading fails: " + std::generic_category().message(error);
}

class PlainBytes : public RecordedBytes {
 public:
  explicit PlainBytes(std::unique_ptr<Pieces> pieces) : pieces_(std::move(pieces)) {}

  size_t Read(uint8_t* to, size_t size) override {
    if (!pieces_->More()) {
      if (pieces_->error() != 0) damage_ = ReadError(pieces_->error());
      return 0;
    }
    const size_t count = std::min(size, pieces_->size());
    std::memcpy(to, pieces_->data(), count);
    pieces_->Use(count);
    return count;
  }

 private:
  const std::unique_ptr<Pieces> pieces_;
};

/// Packed bytes; a packer's own step is all that differs. Several packed files one behind the other are one
/// recording, as their unpacking programs see it too.
class PackedBytes : public RecordedBytes {
 public:
  PackedBytes(std::unique_ptr<Pieces> pieces, const char* packer)
      : pieces_(std::move(pieces)), packer_(packer) {}

  size_t Read(uint8_t* to, size_t size) override {
    size_t filled = 0;
    while (filled == 0 && damage_.empty()) {
      const bool more = pieces_->More();
      if (!more && between_) return 0;
      Step step{pieces_->data(), more ? pieces_->size() : 0, to, size};
      const char* const wrong = Unpack(step, between_);
      filled = size - step.room;
      if (more) pieces_->Use(pieces_->size() - step.left);
      if (wrong != nullptr) {
        damage_ = std::string("its ") + packer_ + " packing is damaged (" + wrong + ")";
      } else if (!more && filled == 0) {
        damage_ = pieces_->error() != 0 ? ReadError(pieces_->error())
                                        : std::string("its ") + packer_ + " packing breaks off";
      }
    }
    return filled;
  }

 protected:
  struct Step {
    const uint8_t* from;
    size_t left;
    uint8_t* to;
    size_t room;
  };
  /// Moves the step on. Sets `between` to whether one packed file ends here. Returns what is wrong, or null.
  virtual const char* Unpack(Step& step, bool& between) = 0;

 private:
  const std::unique_ptr<Pieces> pieces_;
  const char* const packer_;
  bool between_ = false;
};

class GzipBytes : public PackedBytes {
 public:
  explicit GzipBytes(std::unique_ptr<Pieces> pieces) : PackedBytes(std::move(pieces), "gzip") {
    constexpr int kGzipOnly = 16;
    if (inflateInit2(&stream_, MAX_WBITS + kGzipOnly) != Z_OK) throw Failure("out of memory.");
  }
  ~GzipBytes() override { inflateEnd(&stream_); }

 protected:
  const char* Unpack(Step& step, bool& between) override {
    if (between) inflateReset(&stream_);
    between = false;
    stream_.next_in = const_cast<Bytef*>(step.from);  // zlib only reads there
    stream_.avail_in = static_cast<uInt>(step.left);
    stream_.next_out = step.to;
    stream_.avail_out = static_cast<uInt>(step.room);
    const int result = inflate(&stream_, Z_NO_FLUSH);
    step.left = stream_.avail_in;
    step.room = stream_.avail_out;
    between = result == Z_STREAM_END;
    if (result == Z_OK || result == Z_STREAM_END || result == Z_BUF_ERROR) return nullptr;
    return stream_.msg != nullptr ? stream_.msg : zError(result);
  }

 private:
  z_stream stream_{};
};

class ZstdBytes : public PackedBytes {
 public:
  explicit ZstdBytes(std::unique_ptr<Pieces> pieces)
      : PackedBytes(std::move(pieces), "zstd"), context_(ZSTD_createDCtx()) {
    if (context_ == nullptr) throw Failure("out of memory.");
  }
  ~ZstdBytes() override { ZSTD_freeDCtx(context_); }

 protected:
  const char* Unpack(Step& step, bool& between) override {
    ZSTD_inBuffer in{step.from, step.left, 0};
    ZSTD_outBuffer out{step.to, step.room, 0};
    const size_t result = ZSTD_decompressStream(context_, &out, &in);
    step.left -= in.pos;
    step.room -= out.pos;
    between = result == 0;
    return ZSTD_isError(result) != 0 ? ZSTD_getErrorName(result) : nullptr;
  }

 private:
  ZSTD_DCtx* const context_;
};

RecordingFile OpenStandardInput() {
  const int copy = dup(STDIN_FILENO);
  RecordingFile file(copy < 0 ? nullptr : fdopen(copy, "rb"));
  if (file == nullptr) throw Failure("standard input is closed.");
  return file;
}

}  // namespace

std::unique_ptr<RecordedBytes> OpenRecordedBytes(const std::string& path) {
  auto pieces =
      std::make_unique<Pieces>(path == kStandardInput ? OpenStandardInput() : OpenRecordingFile(path));
  if (pieces->size() == 0 && pieces->error() != 0) {
    throw Failure("cannot read the recording " + path + ": " +
                  std::generic_category().message(pieces->error()) + ".");
  }
  switch (PackingOf(pieces->data(), pieces->size())) {
    case Packing::kGzip:
      return std::make_unique<GzipBytes>(std::move(pieces));
    case Packing::kZstd:
      return std::make_unique<ZstdBytes>(std::move(pieces));
    case Packing::kNone:
      break;
  }
  return std::make_unique<PlainBytes>(std::move(pieces));
}

}  // namespace orva
