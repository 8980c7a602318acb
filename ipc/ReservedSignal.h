// SPDX-License-Identifier: MIT
#ifndef LINXIPC_IPC_RESERVEDSIGNAL_H
#define LINXIPC_IPC_RESERVEDSIGNAL_H

#include <cstdint>

/// The numbers of signals that mean something to every endpoint, besides the two of platform/linx.h. Everybody may
/// send these; no other signals may have their numbers.
enum ReservedSignal : std::uint32_t {
    /// Asks the receiver to end. No payload.
    e_ShutdownSignal = 1280,

    /// Tells that a server has died. The payload begins with its `e_Process`: 32 bits, native byte order.
    e_ProcessDiedSignal = 1281,

    /// Is dispatched, and does not end the receive that took it.
    e_WaitGoesOnSignal = 13264
};

#endif
