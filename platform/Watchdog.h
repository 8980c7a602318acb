// SPDX-License-Identifier: MIT
#ifndef LINXIPC_PLATFORM_WATCHDOG_H
#define LINXIPC_PLATFORM_WATCHDOG_H

#include "platform/export.h"

/// The watchdog of this process: whoever supervises the process expects to hear from it at intervals.
class LINXIPC_API Watchdog {
public:
    /// Tells the supervisor that the process is well. 0 on success, also where nobody asks for it.
    int PetWatchdog();
};

#endif
