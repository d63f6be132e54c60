// SPDX-License-Identifier: Apache-2.0
#include "targets.h"

/// ORVA_FUZZ_TARGET names the target that this fuzzer is built for.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  orva::fuzz::ORVA_FUZZ_TARGET(data, size);
  return 0;
}
