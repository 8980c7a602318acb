#ifndef LINXIPC_HOST_ENDPOINT_TIMERS_H
#define LINXIPC_HOST_ENDPOINT_TIMERS_H

#include <cstdint>
#include <map>
#include <unordered_map>

#include "host/arena/layout.h"
#include "host/endpoint/signal_queue.h"
#include "host/system/scoped_descriptor.h"

namespace linx {

/// The time-outs that an endpoint has asked for, in order of deadline, with one timer descriptor armed for the
/// earliest. Deadlines are nanoseconds of the monotonic clock. However many there are, fired or not, each is found at
/// once by its reference and by its signal. Belongs to the endpoint's thread.
class Timers {
public:
    static constexpr uint64_t never = ~uint64_t{0};
    using Place = SignalQueue::Place;

    /// Makes the descriptor when there is none yet. Returns it, for the endpoint to watch; -1 with errno.
    int open();
    int descriptor() const { return descriptor_.get(); }
    void close() { descriptor_.reset(); }

    /// Keeps `signal` until `deadline`. The reference names it from now on. Out of memory, all is as before.
    void add(LinxRef reference, uint64_t deadline, Ref signal);

    uint64_t earliest() const { return waiting_.empty() ? never : waiting_.begin()->first; }

    /// Whether there is none, fired or not.
    bool idle() const { return all_.empty(); }

    /// The signal of the earliest time-out, if its deadline is not after `now`; else none.
    Ref due(uint64_t now) const { return earliest() > now ? Ref::none : all_.at(waiting_.begin()->second).signal; }

    /// The earliest time-out has fired: its signal waits at the place, until `received` or `cancel` is told of it.
    void fire(Place place);

    /// A signal is handed out that may be a fired time-out.
    void received(Ref signal) {
        if (all_.size() != waiting_.size()) forget(signal);
    }

    /// Whether the reference names one, fired or not.
    bool knows(LinxRef reference) const { return all_.count(reference) != 0; }

    /// The next reference for a new one. Numbers go round, past those that still name one.
    LinxRef referenceAfter(LinxRef last) const {
        LinxRef next = last;
        do {
            ++next;
        } while (next == 0 || knows(next));
        return next;
    }

    struct Cancelled {
        Ref signal;  ///< none when the reference is unknown
        bool hadFired;
        Place place;  ///< where the signal waits if so
    };

    /// Takes a time-out back.
    Cancelled cancel(LinxRef reference);

    /// Takes any time-out that has not fired; none where there is none left.
    Ref takeAny();

    /// Sets the descriptor for the earliest deadline, if that has changed.
    void arm();

    /// Makes the descriptor readable at this time too, unless it will be earlier. No time-out fires then.
    void callAt(uint64_t time);

    /// The call has come, if it was for a time not after `now`.
    void called(uint64_t now) {
        if (call_ <= now) call_ = never;
    }
    void callOff() {
        call_ = never;
        arm();
    }

private:
    using Waiting = std::multimap<uint64_t, LinxRef>;
    struct Timeout {
        Ref signal;
        bool hasFired;
        Place place;                ///< of the signal, once it has fired
        Waiting::iterator waiting;  ///< until then
    };
    using All = std::unordered_map<LinxRef, Timeout>;

    void forget(Ref signal);
    void erase(All::iterator timeout);

    ScopedDescriptor descriptor_;
    All all_;
    Waiting waiting_;
    std::unordered_map<Ref, LinxRef> bySignal_;
    uint64_t call_ = never;
    uint64_t armedFor_ = never;
};

}  // namespace linx

#endif
