// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_SERVICE_H_
#define ORVA_TOOLS_SHARED_SERVICE_H_

namespace orva {

/// Tells the service manager that started this program how it does, such as "READY=1" or "WATCHDOG=1": a
/// datagram to the local socket that NOTIFY_SOCKET names. Without a service manager it does nothing.
void TellServiceManager(const char* state);

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_SERVICE_H_
