// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace orva::ros2 {

/// What this machine's kernel settings would lose of large messages, a line each with the command that mends
/// it; empty where they suffice. Machines that receive need the same settings.
std::vector<std::string> KernelAdvice();

}  // namespace orva::ros2
