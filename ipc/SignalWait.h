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
    SignalWait(int milliseconds, std::uint32_t type) : limit_(milliseconds), remaining_(milliseconds) {
        if (type == 0) return;
        selection_[0] = 3;
        selection_[1] = e_ShutdownSignal;
        selection_[2] = e_ProcessDiedSignal;
        selection_[3] = type;
    }

    /// Waits for one signal, with the results of `linx_receive_w_tmo`.
    int receive(LINX* handle, LinxSignal** signal) {
        if (limit_ < 0) return linx_receive(handle, signal, selection_);
        start_ = DiffTime::CalcInitialTimeout(remaining_);
        return linx_receive_w_tmo(handle, signal, static_cast<std::uint32_t>(remaining_), selection_);
    }

    /// Subtracts the time since the last `receive` began from what remains.
    void recalculate() {
        if (limit_ >= 0) remaining_ = DiffTime::ReCalcTimeout(start_);
    }

private:
    const int limit_;  // its sign decides whether there is a limit; what remains may well be negative
    int remaining_;
    unsigned start_ = 0;
    std::uint32_t selection_[4] = {};
};

#endif
