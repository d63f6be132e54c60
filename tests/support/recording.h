// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/capture_file.h"
#include "support/packets.h"
#include "support/reference_decoder.h"

namespace orva::test {

inline constexpr uint16_t kRecordingPort = 2368;

inline void WriteRecording(const std::string& path, const std::vector<Packet>& packets) {
  CaptureFile file(path);
  for (const Packet& packet : packets) file.Datagram(kRecordingPort, packet.bytes());
}

/// Four sweeps of a few packets each, and the beginning of a fifth; the sweeps end in the first, the last and
/// some other block. The packet that ends the second sweep ends the third as well.
inline std::vector<Packet> FiveSweeps(Random& random, LidarType model) {
  std::vector<Packet> packets;
  const size_t last_block = LayoutOf(model).blocks - 1U;
  for (int i = 0; i < 30; ++i) {
    packets.push_back(PlausiblePacket(random, model));
    if (model == NV2) packets.back().Line(static_cast<unsigned>(i) % 7 * 8);
    if (LayoutOf(model).column == 0) continue;
    if (i == 6) packets.back().FrameEnd(0);
    if (i == 13) packets.back().FrameEnd(9).FrameEnd(20);
    if (i == 20) packets.back().FrameEnd(last_block);
    if (i == 26) packets.back().FrameEnd(17);
  }
  return packets;
}

/// What a replay of a recording must deliver, by the transcription of the model.
template <typename PC>
class ReferencePlayer {
 public:
  ReferencePlayer(LidarType model, const DecoderParam& param, std::vector<Packet> packets)
      : decoder(MakeReference<PC>(model, param)), packets_(std::move(packets)) {
    decoder->on_frame = [this](double time) {
      cloud_->timestamp = time;
      clouds.push_back(cloud_);
      NewCloud();
    };
    NewCloud();
    for (size_t i = 0; i < packets_.size(); ++i) {
      uint16_t seq = 0;
      if (decoder->Split(packets_[i].data(), seq) || index.empty()) index.push_back({i, seq});
    }
  }

  void Play(size_t frame) {
    const auto [first, seq] = index[frame];
    decoder->Decode(packets_[first].data(), seq);  // an end here does not end the play
    for (size_t i = first + 1; i < packets_.size(); ++i) {
      if (decoder->Decode(packets_[i].data(), 0)) return;
    }
    decoder->FinishFrame();
  }

  struct Entry {
    size_t packet;
    uint16_t seq;
  };
  std::unique_ptr<ReferenceDecoder<PC>> decoder;
  std::vector<Entry> index;
  std::vector<std::shared_ptr<PC>> clouds;

 private:
  void NewCloud() {
    cloud_ = std::make_shared<PC>();
    decoder->cloud = cloud_.get();
  }

  const std::vector<Packet> packets_;
  std::shared_ptr<PC> cloud_;
};

/// `packets` packets of a grid model, the frame-end marker in block `marker` of the last.
inline std::vector<Packet> Frame(Random& random, LidarType model, size_t packets, size_t marker) {
  std::vector<Packet> frame;
  for (size_t i = 0; i < packets; ++i) frame.push_back(PlausiblePacket(random, model));
  frame.back().FrameEnd(marker);
  return frame;
}

/// The frames that the transcription makes of a stream decoded from block 0 of each packet.
template <typename PC>
std::vector<std::shared_ptr<PC>> ExpectedFrames(LidarType model, const std::vector<Packet>& packets,
                                                const CheckParam* calibration = nullptr) {
  ReferencePlayer<PC> player(model, OpenLimits(), {});
  if (calibration != nullptr) player.decoder->Update(*calibration);
  for (const Packet& packet : packets) player.decoder->Decode(packet.data(), 0);
  return player.clouds;
}

}  // namespace orva::test
