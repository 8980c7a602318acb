// SPDX-License-Identifier: MIT
#ifndef LINXIPC_PLATFORM_WATCHDOG_H
#define LINXIPC_PLATFORM_WATCHDOG_H

#include "platform/export.h"

/// The watchdog of this process: its supervisor expects to hear from it at intervals.
class LINXIPC_API Watchdog {
public:
    /// Tells the supervisor that the process is well. Returns 0 on success, also when the process has no supervisor.
    int PetWatchdog();
};

#endif
