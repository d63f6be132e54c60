// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "options.h"

namespace orva::ros2 {

/// Publishes a recording at its own pace, times `options.rate`, until it ends (or for ever with
/// `options.loop`), Ctrl-C or the duration. Returns a line about what was published. Throws what opening the
/// recording throws, and DdsError.
std::string PublishRecording(const Options& options, const Participant& participant);

}  // namespace orva::ros2
