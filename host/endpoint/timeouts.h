#ifndef LINXIPC_HOST_ENDPOINT_TIMEOUTS_H
#define LINXIPC_HOST_ENDPOINT_TIMEOUTS_H

#include "host/endpoint/identity.h"
#include "host/endpoint/signal_queue.h"
#include "host/endpoint/timers.h"

namespace linx {

/// The time-outs of an endpoint, from the request to the signal in the queue. Its timer also wakes whoever waits on
/// the endpoint's descriptor for other reasons, see callAt. Belongs to the endpoint's thread.
class Timeouts {
public:
    /// The timer is watched in the set `epoll`.
    Timeouts(const Identity& self, int epoll) : self_(self), epoll_(epoll) {}

    /// Makes the timer's descriptor and watches it, if that is still to be done. False with errno.
    bool watch();

    /// Keeps `signal`, a block of the endpoint's, for so many milliseconds. REQUIRES that the timer is watched. Out
    /// of memory, all is as before.
    void request(LinxRef reference, uint32_t milliseconds, const BlockRef& signal);

    /// Cancels a time-out, removing it from `queue` if it has fired. Returns its block; none if unknown.
    BlockRef cancel(LinxRef reference, SignalQueue& queue);

    /// Puts the signals of those into the queue that are due at `time`. Out of memory, the rest has not fired.
    void fire(uint64_t time, SignalQueue& queue);

    /// A signal is handed out that may be a fired time-out.
    void received(Ref signal) { timers_.received(signal); }

    /// When the earliest is due, in nanoseconds of the monotonic clock; Timers::never.
    uint64_t earliest() const { return timers_.earliest(); }

    /// Whether there is none, fired or not.
    bool idle() const { return timers_.idle(); }

    /// The next reference for a new one, or for something else that shares their numbers.
    LinxRef referenceAfter(LinxRef last) const { return timers_.referenceAfter(last); }

    /// Takes the signal of any time-out that has not fired; none where there is none left.
    Ref takeAny() { return timers_.takeAny(); }

    /// Arms the timer for this time as well, unless it fires earlier. Does nothing if no timer can be made.
    void callAt(uint64_t time) {
        if (watch()) timers_.callAt(time);
    }
    void callOff() { timers_.callOff(); }

private:
    const Identity self_;
    const int epoll_;
    Timers timers_;
};

}  // namespace linx

#endif
