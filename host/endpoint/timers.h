#ifndef LINXIPC_HOST_ENDPOINT_TIMERS_H
#define LINXIPC_HOST_ENDPOINT_TIMERS_H

#include <cstdint>
#include <map>
#include <unordered_map>

#include "host/arena/layout.h"
#include "host/arena/scoped_descriptor.h"

namespace linx {

/// The time-outs that an endpoint has asked for, in order of deadline, with one timer descriptor armed for the
/// earliest. Deadlines are nanoseconds of the monotonic clock. Belongs to the endpoint's thread.
class Timers {
public:
    static constexpr uint64_t never = ~uint64_t{0};

    /// Makes the descriptor when there is none yet. Returns it, for the endpoint to watch; -1 with errno.
    int open();
    int descriptor() const { return descriptor_.get(); }
    void close() { descriptor_.reset(); }

    /// Keeps `signal` until `deadline`. The reference names it from now on. Out of memory, all is as before.
    void add(LinxRef reference, uint64_t deadline, Ref signal);

    uint64_t earliest() const { return waiting_.empty() ? never : waiting_.begin()->first; }

    /// Whether there is none, fired or not.
    bool idle() const { return waiting_.empty() && fired_.empty(); }

    /// Gives the next time-out whose deadline is not after `now`; 0 when none is due. It counts as fired until
    /// `received` or `cancel` is told of it. Out of memory, all is as before.
    Ref fire(uint64_t now);

    /// A signal is handed out that may be a fired time-out.
    void received(Ref signal) {
        if (!fired_.empty()) forget(signal);
    }

    /// Whether the reference names one, fired or not.
    bool knows(LinxRef reference) const;

    /// Takes a time-out back: its signal, and whether it had fired. 0 when the reference is unknown.
    Ref cancel(LinxRef reference, bool& hadFired);

    /// Takes any time-out that has not fired; 0 when none is left.
    Ref takeAny();

    /// Sets the descriptor for the earliest deadline, if that has changed.
    void arm();

private:
    struct Timeout {
        LinxRef reference;
        Ref signal;
    };

    void forget(Ref signal);

    ScopedDescriptor descriptor_;
    std::multimap<uint64_t, Timeout> waiting_;
    std::unordered_map<LinxRef, std::multimap<uint64_t, Timeout>::iterator> byReference_;
    std::unordered_map<Ref, LinxRef> fired_;
    uint64_t armedFor_ = never;
};

}  // namespace linx

#endif
