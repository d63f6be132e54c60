// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_CAPTURES_CAPTURE_CHECK_H_
#define ORVA_TOOLS_CAPTURES_CAPTURE_CHECK_H_

#include <filesystem>

namespace orva {

/// The driver answers a bad capture file with no more than "false". This finds the usual reasons beforehand
/// (missing, a folder, no permission, empty, no capture at all) and throws a Failure that names it.
void CheckCapture(const std::filesystem::path& path);

}  // namespace orva

#endif  // ORVA_TOOLS_CAPTURES_CAPTURE_CHECK_H_
