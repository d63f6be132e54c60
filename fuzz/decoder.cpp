// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <vector>

#include "decoder/decoder_factory.h"
#include "expect.h"
#include "targets.h"

namespace orva::fuzz {
namespace {

using tevoro::lidar::CheckParam;

/// Hands out the input piece by piece, then zeros.
class Pieces {
 public:
  Pieces(const uint8_t* data, size_t size) : data_(data), left_(size) {}
  bool Empty() const { return left_ == 0; }
  void Take(void* target, size_t size) {
    const size_t taken = std::min(size, left_);
    std::memset(target, 0, size);
    if (taken > 0) std::memcpy(target, data_, taken);
    data_ += taken;
    left_ -= taken;
  }
  template <typename Value>
  Value Take() {
    Value value;
    Take(&value, sizeof(value));
    return value;
  }

 private:
  const uint8_t* data_;
  size_t left_;
};

constexpr LidarType kModels[] = {KR7, NV2, TS4A, TS4B, TS4, TS6};
/// Limits, mounting and what a calibration is filled with.
using Numbers = std::array<float, 17>;
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kLargest = std::numeric_limits<float>::max();
constexpr float kSmallest = std::numeric_limits<float>::denorm_min();
/// The grid models prepare tables, which takes longer than a thousand packets. So decoders are made once for
/// each of these, and the input chooses.
constexpr Numbers kSetups[] = {
    {0, 1000, -360, 360, -360, 360},
    {0.5F, 200, -60, 60, -15, 15, 45, 0.1F, -0.2F, 1.5F, -59.5F, 12.25F, 0.01F, 3, 40, 2, -0.05F},
    {2, 1, 10, -10, 0, 0, 1e6F, -1e6F, 0, 0, 400, -400, 1e9F, -1e9F, 5, 0, 1},
    {kNan, kNan, kNan, kNan, kNan, kNan, kNan, kNan, 0, 0, kNan, 1, kNan, -1, kNan, 0, kNan},
    {-kInfinity, kInfinity, -kInfinity, kInfinity, -kLargest, kLargest, kInfinity, kLargest, -kLargest,
     kSmallest, kInfinity, -kInfinity, kLargest, -kLargest, kSmallest, -kSmallest, 1},
};

template <typename PC>
using DecoderPtr = std::shared_ptr<tevoro::lidar::Decoder<PC>>;

template <typename PC>
DecoderPtr<PC> MakeDecoder(LidarType model, const Numbers& n) {
  const bool mounted = &n != kSetups;
  const DecoderParam param{n[0], n[1], n[2], n[3], n[4], n[5], mounted, n[6], 1, 2, n[7], n[8], n[9]};
  const auto decoder = tevoro::lidar::DecoderFactory<PC>::CreateDecoder(model, param);
  // Seven numbers fill the tables in turn, so that neighbours differ.
  const auto check = std::make_unique<CheckParam>();
  for (size_t i = 0; i < tevoro::lidar::CALIB_TABLE_ENTRIES; ++i) {
    check->azimuth[i] = n[10 + i % 7];
    check->elevation[i] = n[10 + (i + 3) % 7];
  }
  for (size_t i = 0; i < 4; ++i) check->weight[i] = n[10 + (i * 3) % 7];
  for (size_t i = 0; i < 8; ++i) check->near_filter[i] = n[10 + (i * 5 + 2) % 7];
  if (mounted) decoder->UpdateCheckParam(check.get());
  return decoder;
}

/// Every input closes its frames: what is left of earlier ones is TS6's place in its cycle of 256 blocks.
template <typename PC>
DecoderPtr<PC> GetDecoder(size_t model, size_t setup) {
  static DecoderPtr<PC> kept[std::size(kModels)][std::size(kSetups)];
  DecoderPtr<PC>& decoder = kept[model][setup];
  if (!decoder) decoder = MakeDecoder<PC>(kModels[model], kSetups[setup]);
  return decoder;
}

template <typename PC>
void Run(size_t model, size_t setup, Pieces& pieces) {
  const auto decoder = GetDecoder<PC>(model, setup);
  const auto fresh_cloud = [] { return std::make_shared<PC>(); };
  decoder->RegisterCallBack([](const Error& error) { ORVA_EXPECT(error.error_level == 1); },
                            [&](const uint16_t&, const double&) { decoder->point_cloud_ = fresh_cloud(); });
  decoder->RegisterIMUCallBack([&] { ORVA_EXPECT(decoder->imu_msg_->valid); });
  decoder->point_cloud_ = fresh_cloud();
  decoder->imu_msg_ = std::make_shared<ImuMsg>();

  const auto& model_constants = decoder->ConstParam();
  std::vector<uint8_t> packet(model_constants.MSOP_LEN);
  std::copy_n(model_constants.MSOP_ID, 8, packet.begin());
  for (int i = 0; i < 16 && !pieces.Empty(); ++i) {
    const auto deed = pieces.Take<uint8_t>();
    const auto start = pieces.Take<uint16_t>();
    pieces.Take(packet.data() + 8, packet.size() - 8);
    uint16_t seq = 0;
    switch (deed % 8) {
      case 0:
        packet[deed / 8 % 8] ^= 1U;
        ORVA_EXPECT(!decoder->ProcessMsopPacket(packet.data(), packet.size(), start));
        packet[deed / 8 % 8] ^= 1U;
        break;
      case 1:
        ORVA_EXPECT(!decoder->ProcessMsopPacket(packet.data(), packet.size() - 1, start));
        break;
      case 2:
        if (decoder->toSplite(packet.data(), packet.size(), seq))
          ORVA_EXPECT(seq <= model_constants.BLOCKS_PER_PKT);
        break;
      case 3:
        decoder->EnableFinallyFrame();
        break;
      case 4:
        decoder->point_cloud_ = nullptr;
        [[fallthrough]];
      default:
        decoder->ProcessMsopPacket(packet.data(), packet.size(), start);
    }
  }
  std::fill(packet.begin() + 8, packet.end(), uint8_t{0});
  packet[25] = 0x7F;
  packet[26] = 0xBF;
  decoder->ProcessMsopPacket(packet.data(), packet.size(), 0);
}

}  // namespace

void Decoder(const uint8_t* data, size_t size) {
  Pieces pieces(data, size);
  const size_t model = pieces.Take<uint8_t>() % std::size(kModels);
  const auto cloud = pieces.Take<uint8_t>();
  const size_t setup = pieces.Take<uint8_t>() % std::size(kSetups);
  if (cloud % 3 == 0) Run<PointCloud<Point>>(model, setup, pieces);
  if (cloud % 3 == 1) Run<PointCloud<PointTime>>(model, setup, pieces);
  if (cloud % 3 == 2) Run<PointCloud<PointSource>>(model, setup, pieces);
}

}  // namespace orva::fuzz
