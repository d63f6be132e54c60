// SPDX-License-Identifier: Apache-2.0
#include "captures/verdict.h"

#include <algorithm>

#include "decoder/decoder.h"
#include "decoder/decoder_ts4b.h"
#include "decoder/decoder_ts6.h"

namespace orva {
namespace {

bool NearlyAll(uint64_t part, uint64_t whole) {
  return part * 10 >= whole * 9;
}

void JudgeGrid(const Stream& stream, Verdict& verdict) {
  const bool b = NearlyAll(stream.looks_like_primary, stream.packets.count);
  const bool a = NearlyAll(stream.looks_like_ts4a, stream.packets.count);
  if (b && !a) {
    verdict.models = {"TS4B"};
    verdict.why = "1360 bytes, and grid codes where a TS4B has them";
  } else if (a && !b) {
    verdict.models = {"TS4A"};
    verdict.frames = &stream.as_ts4a;
    verdict.why = "1360 bytes, and grid codes where a TS4A has them";
  } else {
    verdict.models = {"TS4B", "TS4A"};
    if (stream.as_ts4a.ends.count > stream.primary.ends.count) {
      verdict.models = {"TS4A", "TS4B"};
      verdict.frames = &stream.as_ts4a;
    }
    verdict.why = "both send 1360 bytes with one identifier; the content fits neither alone";
    verdict.settle = "the sensor's label; only a TS4B gives distances";
  }
}

void JudgeLines(const Stream& stream, Verdict& verdict) {
  // A short recording would show rising line numbers by chance.
  constexpr uint64_t kEnough = 8;
  if (stream.packets.count >= kEnough && NearlyAll(stream.looks_like_primary, stream.packets.count)) {
    verdict.models = {"NV2"};
    verdict.why = "1236 bytes, and line numbers that run as an NV2's do";
  } else {
    verdict.models = {"NV2", "KR7", "TS4"};
    verdict.why = "all three send 1236 bytes with one identifier; no NV2 line numbers";
    verdict.settle = "the sensor's label; the driver gives points for an NV2 only";
  }
}

}  // namespace

std::vector<Verdict> Judge(const Survey& survey) {
  std::vector<Verdict> verdicts;
  for (const auto& [kind, stream] : survey.streams) {
    if (!kind.sensor_identifier || !IsModelLength(kind.length)) continue;
    Verdict verdict{.port = kind.port, .stream = &stream, .frames = &stream.primary};
    if (kind.length == tevoro::lidar::TS4BModel::kConst.MSOP_LEN) {
      JudgeGrid(stream, verdict);
    } else if (kind.length == tevoro::lidar::TS6Model::kConst.MSOP_LEN) {
      verdict.models = {"TS6"};
      verdict.why = NearlyAll(stream.looks_like_primary, stream.packets.count)
                        ? "1104 bytes, and grid codes where a TS6 has them"
                        : "the only model of 1104 bytes; its grid codes look odd";
    } else {
      JudgeLines(stream, verdict);
    }
    verdicts.push_back(std::move(verdict));
  }
  std::stable_sort(verdicts.begin(), verdicts.end(), [](const Verdict& a, const Verdict& b) {
    return a.stream->packets.count > b.stream->packets.count;
  });
  return verdicts;
}

}  // namespace orva
