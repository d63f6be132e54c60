// SPDX-License-Identifier: Apache-2.0
#include "captures/frame_counter.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "decoder/decoder_nv2.h"
#include "decoder/decoder_ts4a.h"
#include "decoder/decoder_ts4b.h"
#include "decoder/decoder_ts6.h"
#include "decoder/frame_marker.h"
#include "shared/failure.h"
#include "shared/models.h"

namespace orva {
namespace {

using tevoro::lidar::DecoderConstParam;
using Nv2 = tevoro::lidar::NV2Model;
using Ts4a = tevoro::lidar::TS4AModel;
using tevoro::lidar::OrvaTS4BMsopBlock;
using tevoro::lidar::OrvaTS6MsopBlock;
constexpr auto kTs4b = tevoro::lidar::TS4BModel::kConst;
constexpr auto kTs6 = tevoro::lidar::TS6Model::kConst;

/// Where a grid model's packet holds its codes.
struct Grid {
  DecoderConstParam model;
  size_t first;
  size_t stride;
};

std::optional<Grid> GridOf(LidarType model) {
  switch (model) {
    case TS4B:
      return Grid{kTs4b, OrvaTS4BMsopBlock::kFirst, OrvaTS4BMsopBlock::kStride};
    case TS4A:
      return Grid{kTs4b, Ts4a::kFirstBlock, Ts4a::kBlockStride};
    case TS6:
      return Grid{kTs6, OrvaTS6MsopBlock::kFirst, OrvaTS6MsopBlock::kStride};
    default:
      return std::nullopt;
  }
}

bool IsOf(const DecoderConstParam& model, std::span<const uint8_t> packet) {
  return packet.size() == model.MSOP_LEN &&
         std::equal(std::begin(model.MSOP_ID), std::end(model.MSOP_ID), packet.begin());
}

}  // namespace

FrameCounter::FrameCounter(LidarType model) : model_(model) {
  if (model != NV2 && !GridOf(model)) {
    throw WrongUsage(std::string("the packets of a ") + TraitsOf(model).name +
                     " do not say where frames end. Cut by time, with --from and --to.");
  }
}

std::optional<FramesOfPacket> FrameCounter::Add(std::span<const uint8_t> packet) {
  if (const std::optional<Grid> grid = GridOf(model_)) {
    if (!IsOf(grid->model, packet)) return std::nullopt;
    const uint16_t blocks = grid->model.BLOCKS_PER_PKT;
    uint16_t after = 0;
    const uint64_t frame = frame_;
    if (!tevoro::lidar::FindFrameEnd(packet.data(), grid->first, grid->stride, blocks, after)) {
      return FramesOfPacket{frame, frame};
    }
    ++frame_;
    return FramesOfPacket{frame, after < blocks ? frame_ : frame};
  }
  if (!IsOf(Nv2::kConst, packet)) return std::nullopt;
  const auto line = static_cast<uint8_t>(Nv2::Line::Read(packet.data()));
  const uint64_t frame = frame_;
  // The packet whose line falls ends the frame before, and belongs to it whole.
  if (line_ && line < *line_) ++frame_;
  line_ = line;
  return FramesOfPacket{frame, frame};
}

}  // namespace orva
