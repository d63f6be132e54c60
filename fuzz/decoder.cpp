// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <list>
#include <memory>
#include <string>
#include <utility>
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

template <typename PC>
std::shared_ptr<tevoro::lidar::Decoder<PC>> MakeDecoder(LidarType model, const Numbers* numbers) {
  DecoderParam param{0.0F, 1000.0F, -360.0F, 360.0F, -360.0F, 360.0F, false, 0, 0, 0, 0, 0, 0};
  if (numbers == nullptr) return tevoro::lidar::DecoderFactory<PC>::CreateDecoder(model, param);
  const Numbers& n = *numbers;
  param = {n[0], n[1], n[2], n[3], n[4], n[5], true, n[6], 1.0F, 2.0F, n[7], n[8], n[9]};
  auto decoder = tevoro::lidar::DecoderFactory<PC>::CreateDecoder(model, param);
  // Seven numbers fill the tables in turn, so that neighbours differ.
  const auto check = std::make_unique<CheckParam>();
  for (size_t i = 0; i < tevoro::lidar::CALIB_TABLE_ENTRIES; ++i) {
    check->azimuth[i] = n[10 + i % 7];
    check->elevation[i] = n[10 + (i + 3) % 7];
  }
  for (size_t i = 0; i < 4; ++i) check->weight[i] = n[10 + (i * 3) % 7];
  for (size_t i = 0; i < 8; ++i) check->near_filter[i] = n[10 + (i * 5 + 2) % 7];
  decoder->UpdateCheckParam(check.get());
  return decoder;
}

/// The grid models prepare tables when they are made, which takes longer than a thousand packets. So the last
/// ones are kept, their frames closed: what is left of earlier inputs is TS6's place in its cycle of 256
/// blocks.
template <typename PC>
std::shared_ptr<tevoro::lidar::Decoder<PC>> GetDecoder(LidarType model, const Numbers* numbers) {
  if (model != TS4B && model != TS6) return MakeDecoder<PC>(model, numbers);
  static std::list<std::pair<std::string, std::shared_ptr<tevoro::lidar::Decoder<PC>>>> kept;
  std::string key = std::to_string(model);
  if (numbers != nullptr) key.append(reinterpret_cast<const char*>(numbers->data()), sizeof(Numbers));
  const auto found =
      std::find_if(kept.begin(), kept.end(), [&](const auto& entry) { return entry.first == key; });
  if (found != kept.end()) {
    kept.splice(kept.begin(), kept, found);
  } else {
    kept.emplace_front(key, MakeDecoder<PC>(model, numbers));
    if (kept.size() > 32) kept.pop_back();
  }
  return kept.front().second;
}

template <typename PC>
void Run(LidarType model, bool configured, Pieces& pieces) {
  const auto numbers = pieces.Take<Numbers>();
  const auto decoder = GetDecoder<PC>(model, configured ? &numbers : nullptr);
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
  const auto model = kModels[pieces.Take<uint8_t>() % std::size(kModels)];
  const auto cloud = pieces.Take<uint8_t>();
  const bool configured = pieces.Take<uint8_t>() == 0xFF;
  if (cloud % 3 == 0) Run<PointCloud<Point>>(model, configured, pieces);
  if (cloud % 3 == 1) Run<PointCloud<PointTime>>(model, configured, pieces);
  if (cloud % 3 == 2) Run<PointCloud<PointSource>>(model, configured, pieces);
}

}  // namespace orva::fuzz
