// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <list>
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
using Numbers = std::array<float, 17>;

/// Options: with the low bits set the input gives limits and mounting, with the high bits a calibration.
/// Whole nibbles, because a new calibration costs more than a thousand packets.
bool GivesSetUp(uint8_t options) {
  return (options & 0x0FU) == 0x0FU;
}
bool GivesCalibration(uint8_t options) {
  return (options & 0xF0U) == 0xF0U;
}

template <typename PC>
std::shared_ptr<tevoro::lidar::Decoder<PC>> MakeDecoder(LidarType model, uint8_t options, const Numbers& n) {
  DecoderParam param{0.0F, 1000.0F, -360.0F, 360.0F, -360.0F, 360.0F, false, 0, 0, 0, 0, 0, 0};
  if (GivesSetUp(options))
    param = {n[0], n[1], n[2], n[3], n[4], n[5], true, n[6], 1.0F, 2.0F, n[7], n[8], n[9]};
  auto decoder = tevoro::lidar::DecoderFactory<PC>::CreateDecoder(model, param);
  ORVA_EXPECT(decoder != nullptr);
  if (!GivesCalibration(options)) return decoder;
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

/// The grid models prepare tables when they are made. Those of the last set-ups are kept, their frames
/// closed: what is left of earlier inputs is TS6's place in its cycle of 256 blocks.
template <typename PC>
std::shared_ptr<tevoro::lidar::Decoder<PC>> GetDecoder(LidarType model, uint8_t options,
                                                       const Numbers& numbers) {
  if (model != TS4B && model != TS6) return MakeDecoder<PC>(model, options, numbers);
  struct Kept {
    std::array<uint8_t, sizeof(Numbers) + 2> key;
    std::shared_ptr<tevoro::lidar::Decoder<PC>> decoder;
  };
  static std::list<Kept> kept;
  decltype(Kept::key) key{};
  key[0] = static_cast<uint8_t>(model);
  key[1] = static_cast<uint8_t>(GivesSetUp(options) + 2 * GivesCalibration(options));
  if (key[1] != 0) std::memcpy(&key[2], numbers.data(), sizeof(Numbers));
  const auto found = std::find_if(kept.begin(), kept.end(), [&](const Kept& k) { return k.key == key; });
  if (found != kept.end()) {
    kept.splice(kept.begin(), kept, found);
  } else {
    kept.push_front({key, MakeDecoder<PC>(model, options, numbers)});
    if (kept.size() > 32) kept.pop_back();
  }
  return kept.front().decoder;
}

template <typename PC>
void Run(LidarType model, uint8_t options, Pieces& pieces) {
  const auto numbers = pieces.Take<Numbers>();
  const auto decoder = GetDecoder<PC>(model, options, numbers);
  size_t frames = 0;
  const auto fresh_cloud = [] { return std::make_shared<PC>(); };
  decoder->RegisterCallBack([](const Error& error) { ORVA_EXPECT(error.error_level == 1); },
                            [&](const uint16_t& lines, const double&) {
                              ORVA_EXPECT(lines == decoder->ConstParam().LASER_NUM);
                              ++frames;
                              decoder->point_cloud_ = fresh_cloud();
                            });
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
    const size_t before = frames;
    const size_t points = decoder->point_cloud_ == nullptr ? 0 : decoder->point_cloud_->points.size();
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
        ORVA_EXPECT(frames == before + 1);
        break;
      case 4:
        decoder->point_cloud_ = nullptr;
        [[fallthrough]];
      default:
        if (decoder->ProcessMsopPacket(packet.data(), packet.size(), start))
          ORVA_EXPECT(frames == before + 1);
        if (frames == before && decoder->point_cloud_ != nullptr) {
          const size_t grown = decoder->point_cloud_->points.size() - points;
          const size_t blocks = model_constants.BLOCKS_PER_PKT;
          ORVA_EXPECT(grown == 0 || grown == blocks - std::min<size_t>(start, blocks));
        }
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
  const auto options = pieces.Take<uint8_t>();
  if (cloud % 3 == 0) Run<PointCloud<Point>>(model, options, pieces);
  if (cloud % 3 == 1) Run<PointCloud<PointTime>>(model, options, pieces);
  if (cloud % 3 == 2) Run<PointCloud<PointSource>>(model, options, pieces);
}

}  // namespace orva::fuzz
