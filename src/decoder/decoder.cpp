// SPDX-License-Identifier: Apache-2.0
#include "decoder/decoder.h"

#include <atomic>
#include <cstring>
#include <ctime>

#include "common/cloud_types.h"
#include "common/console.h"

namespace tevoro::lidar {

/// When a fault of each kind was last reported. One per operation and cloud type in the process, so that a
/// flood of bad packets reaches an application as one report in two seconds however many drivers it runs.
template <typename PC>
struct Decoder<PC>::Throttle {
  std::atomic<std::time_t> length{0};
  std::atomic<std::time_t> identifier{0};
};

template <typename PC>
typename Decoder<PC>::Refusal Decoder<PC>::Check(const uint8_t* data, size_t len,
                                                 PacketCounts& counts) const {
  if (len != const_param_.MSOP_LEN) {
    counts.wrong_length.Add();
    return Refusal::kLength;
  }
  if (std::memcmp(data, const_param_.MSOP_ID, const_param_.MSOP_ID_LEN) != 0) {
    counts.wrong_identifier.Add();
    return Refusal::kIdentifier;
  }
  counts.accepted.Add();  // before it is decoded: a callback that looks finds its own packet counted
  return Refusal::kNone;
}

template <typename PC>
void Decoder<PC>::Report(Refusal refusal, Throttle& throttle) {
  const bool length = refusal == Refusal::kLength;
  std::atomic<std::time_t>& last = length ? throttle.length : throttle.identifier;
  const std::time_t now = std::time(nullptr);
  if (now >= last && now - last <= 1) return;  // a clock that was set back does not silence it
  error_cb_(Error{length ? ERROR_MSOP_LENGTH : ERROR_MSOP_ID, 1});
  last = now;
}

template <typename PC>
Placement Decoder<PC>::GetPlacement() const {
  Placement placement{param_.min_distance, param_.max_distance, param_.use_transform, {}};
  std::memcpy(placement.pose, mounting_.Pose(), sizeof(placement.pose));
  return placement;
}

template <typename PC>
bool Decoder<PC>::ProcessMsopPacket(const uint8_t* data, size_t len, uint16_t start) {
  const Refusal refusal = Check(data, len, processed_);
  if (refusal == Refusal::kNone) return DecodeMsopPacket(data, const_param_.MSOP_LEN, start);
  static Throttle throttle;
  if (refusal == Refusal::kLength) {
    PrintLine("ProcessMsopPacket MSOP_LEN:" + std::to_string(const_param_.MSOP_LEN) +
              " size:" + std::to_string(len));
  } else {
    PrintLine("ProcessMsopPacket MSOP_ID");
  }
  Report(refusal, throttle);
  return false;
}

template <typename PC>
bool Decoder<PC>::toSplite(const uint8_t* data, size_t len, uint16_t& seq) {
  const Refusal refusal = Check(data, len, examined_);
  if (refusal == Refusal::kNone) return SplitFrame(data, const_param_.MSOP_LEN, seq);
  static Throttle throttle;
  Report(refusal, throttle);
  return false;
}

#define ORVA_INSTANTIATE(PC) template class Decoder<PC>;
ORVA_FOR_EACH_CLOUD(ORVA_INSTANTIATE)

}  // namespace tevoro::lidar
