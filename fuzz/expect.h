// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>

/// Like assert, in every build.
#define ORVA_EXPECT(condition)                                                             \
  do {                                                                                     \
    if (!(condition)) {                                                                    \
      std::fprintf(stderr, "%s:%d: broken promise: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                        \
    }                                                                                      \
  } while (false)

namespace orva::fuzz {

/// Is this one of the inputs for which a target does what takes far longer than all the rest? It is by its
/// bytes, so that it is again when it is run again, and what a search makes of it mostly is not.
inline bool OneIn(uint32_t share, const uint8_t* data, size_t size) {
  const auto mix = [](uint32_t sum, uint8_t byte) { return (sum ^ byte) * 16777619U; };  // FNV-1a
  return (std::accumulate(data, data + size, 2166136261U, mix) >> 16) % share == 0;
}

}  // namespace orva::fuzz
