#ifndef LINXIPC_HOST_ENDPOINT_CHORES_H
#define LINXIPC_HOST_ENDPOINT_CHORES_H

#include "host/endpoint/ownership.h"
#include "host/endpoint/peers.h"
#include "host/pool/pool.h"

namespace linx {

/// What could not be done when it was due, and is tried again: rings and answers that others wait for, the dead to be
/// reaped, memory that others want. While others wait for it, no receive sleeps for long. Nor before it has tried
/// once to reap the dead, who may have left somebody asleep; after that they can wait: an endpoint that needs their
/// names or their memory looks for them itself.
class Chores {
public:
    Chores(const Identity& self, Ownership& ownership, Pool& pool, Peers& peers)
        : self_(self), ownership_(ownership), pool_(pool), peers_(peers) {}

    /// A ring that a peer asked for has failed, though the peer lives.
    void oweRing();

    /// Somebody hunts for this endpoint and could not be answered, or could not be rung for the answer.
    void oweAnswers();

    bool owesRings() const { return owesRings_; }
    bool owesOthers() const { return owesRings_ || peers_.owesReaping() || pool_.owesRelief(); }

    /// Tries again to do all of it, if there is any.
    void run() {
        if (owesOthers() || !peers_.dead().empty() || pool_.isUnderPressure()) runAll();
    }

    /// Tries the answers and the rings again before an operation, but once a tick of the kernel.
    void runBeforeOperation();

    /// When what others wait for is to be tried again, in nanoseconds of the monotonic clock, less and less often;
    /// Timers::never when there is no such thing.
    uint64_t due() const;

private:
    void runAll();
    void answerAndRing();

    const Identity self_;
    Ownership& ownership_;
    Pool& pool_;
    Peers& peers_;
    bool owesRings_ = false;
    bool owesAnswers_ = false;  ///< and rings
    uint64_t triedAt_ = 0;      ///< the tick in which an operation last tried to make that good
    uint32_t pause_ = 0;        ///< milliseconds until what others wait for is tried again
};

}  // namespace linx

#endif
