// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_PACKET_LOSSES_H_
#define ORVA_TOOLS_SESSIONS_PACKET_LOSSES_H_

#include <string>

#include "orva_driver.h"

namespace orva {

// What the commands that listen to a sensor say about packets that came, got lost, or never came.

/// The packets that reached this machine and got lost in it, by kind, and what else memory ran out for; empty
/// where there are none.
std::string LossText(const DriverStatistics& statistics);
/// The packets that are not the model's, by kind: the driver refuses them, a recording holds them.
std::string RefusalText(const DriverStatistics& statistics);

/// Throws Failure, with the usual reasons, where not one datagram arrived.
void RequireArrivals(const DriverParam& param, const DriverStatistics& statistics);

/// Why InitDriver may have failed in live mode.
std::string CannotListen(const DriverParam& param);

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_PACKET_LOSSES_H_
