#include "platform/Watchdog.h"

#ifdef LINXIPC_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

#ifdef LINXIPC_SYSTEMD
int Watchdog::PetWatchdog() {
    int result = sd_watchdog_enabled(0, nullptr);
    if (result > 0) result = sd_notify(0, "WATCHDOG=1");
    return result < 0 ? -result : 0;
}
#else
int Watchdog::PetWatchdog() {
    return 0;
}
#endif
