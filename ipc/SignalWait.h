#ifndef LINXIPC_IPC_SIGNALWAIT_H
#define LINXIPC_IPC_SIGNALWAIT_H

#include <cstdint>

#include "ipc/ReservedSignal.h"
#include "ipc/linxIpc.h"
#include "platform/DiffTime.h"
#include "platform/linx.h"

/// Which signals a receive takes, and how long it may still wait: all its waits together have one time limit.
class LinxIpc::SignalWait {
public:
    /// Waits up to `milliseconds`, without limit when that is negative, for signals of the number `type`, shutdown
    /// requests and notices of deaths; for any signal when `type` is 0.
    SignalWait(int milliseconds, std::uint32_t type) : limit(milliseconds), remaining(milliseconds) {
        if (type == 0) return;
        selection[0] = 3;
        selection[1] = e_ShutdownSignal;
        selection[2] = e_ProcessDiedSignal;
        selection[3] = type;
    }

    /// Waits for one signal, with the results of `linx_receive_w_tmo`.
    int Receive(LINX* handle, LinxSignal** signal) {
        if (limit < 0) return linx_receive(handle, signal, selection);
        start = DiffTime::CalcInitialTimeout(remaining);
        return linx_receive_w_tmo(handle, signal, static_cast<std::uint32_t>(remaining), selection);
    }

    /// Subtracts the time since the last `Receive` began from what remains.
    void Recalculate() {
        if (limit >= 0) remaining = DiffTime::ReCalcTimeout(start);
    }

private:
    const int limit;  // its sign decides whether there is a limit; what remains may well be negative
    int remaining;
    unsigned start = 0;
    std::uint32_t selection[4] = {};
};

#endif
