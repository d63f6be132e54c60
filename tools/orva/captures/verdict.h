// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_VERDICT_H_
#define ORVA_TOOLS_CAPTURES_VERDICT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "captures/survey.h"

namespace orva {

/// Which sensor sent the packets of one kind.
struct Verdict {
  uint16_t port = 0;
  const Stream* stream = nullptr;
  const FrameEnds* frames = nullptr;  ///< by the first model's rule
  std::vector<std::string> models{};  ///< more than one where the recording cannot tell; the likeliest first
  std::string why{};
  std::string settle{};  ///< what would tell them apart; empty for a single model
};

/// One verdict for each kind of packet whose length and identifier are a sensor's, most packets first.
std::vector<Verdict> Judge(const Survey& survey);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_VERDICT_H_
