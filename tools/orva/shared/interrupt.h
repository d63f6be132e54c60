// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_INTERRUPT_H_
#define ORVA_TOOLS_SHARED_INTERRUPT_H_

namespace orva {

/// From now on Ctrl-C (SIGINT) and SIGTERM set a flag instead of ending the process, so that a command can
/// finish or discard the file it is writing. Another one, at least a second later, ends the process at once.
void CatchInterrupts();

/// True after the first Ctrl-C.
bool Interrupted();

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_INTERRUPT_H_
