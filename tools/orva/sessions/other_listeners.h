// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_OTHER_LISTENERS_H_
#define ORVA_TOOLS_SESSIONS_OTHER_LISTENERS_H_

#include "orva_driver.h"

namespace orva {

/// The driver shares its port with whoever asks, and the kernel then hands each datagram to one of them. To
/// be called before a driver listens: warns where another socket of this machine does already.
void WarnOfOtherListeners(const InputParam& input);

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_OTHER_LISTENERS_H_
