// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <iterator>
#include <vector>

#include "expect.h"
#include "param/calibration_stream.h"
#include "targets.h"

namespace orva::fuzz {
namespace {

constexpr LidarType kModels[] = {KR7, NV2, TS4, TS4A, TS4B, TS6, static_cast<LidarType>(5)};
constexpr size_t kReplyCapacity = 2048;

}  // namespace

void CalibrationReplies(const uint8_t* data, size_t size) {
  if (size == 0) return;
  const LidarType model = kModels[data[0] % std::size(kModels)];
  tevoro::lidar::CalibrationStream stream;
  static tevoro::lidar::CheckParam record;  // only ever written

  for (size_t at = 1; at + 3 <= size;) {
    const uint8_t deed = data[at];
    const size_t length = (data[at + 1] + 256U * data[at + 2]) % (kReplyCapacity + 1);
    at += 3;
    // Of its own size, so that a read behind the reply is seen; what the input lacks is zeros.
    std::vector<signed char> reply(length);
    const size_t given = std::min(length, size - at);
    std::transform(data + at, data + at + given, reply.begin(),
                   [](uint8_t byte) { return static_cast<signed char>(byte); });
    at += given;
    if (deed % 8 != 0) std::fill_n(reply.begin(), std::min<size_t>(length, 4), 'Z');

    for (int repeat = 0; repeat < 1 << (deed / 8 % 6); ++repeat) {
      bool last_chunk = true;
      bool complete = false;
      const int next =
          stream.PushData(model, reply.data(), static_cast<int>(length), &record, last_chunk, complete);
      if (next == -1 && last_chunk && !complete) continue;  // refused
      ORVA_EXPECT(length >= 4 && reply[0] == 'Z' && complete == (next == 0 && last_chunk));
      if (complete) return;  // nobody asks for more
    }
  }
}

}  // namespace orva::fuzz
