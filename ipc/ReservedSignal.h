// SPDX-License-Identifier: MIT
#ifndef LINXIPC_IPC_RESERVEDSIGNAL_H
#define LINXIPC_IPC_RESERVEDSIGNAL_H

#include <cstdint>

/// The numbers of signals that have a meaning for every endpoint, besides those of platform/linx.h. Any endpoint may
/// send these signals; no others may have their numbers.
enum ReservedSignal : std::uint32_t {
    /// Asks the receiver to shut down. No payload.
    e_ShutdownSignal = 1280,

    /// Tells that a server has died. The payload begins with that server's `e_Process`: 32 bits, native byte order.
    e_ProcessDiedSignal = 1281,

    /// Is dispatched like any other, but does not end the receive that takes it.
    e_WaitGoesOnSignal = 13264
};

#endif
