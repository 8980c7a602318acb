#ifndef LINXIPC_HOST_ENDPOINT_CHORES_H
#define LINXIPC_HOST_ENDPOINT_CHORES_H

#include "host/endpoint/ownership.h"
#include "host/endpoint/peers.h"
#include "host/pool/pool.h"

namespace linx {

/// Work that could not be done when it was due and is retried: rings and hunt answers, reaping dead peers, giving up
/// memory. While others wait for any of it, no receive sleeps for long. Nor before it has tried once to reap the
/// dead, which may have left a receiver asleep; after that they can wait: an endpoint that needs their names or their
/// memory finds them itself.
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

    /// Retries the answers and the rings before an operation, at most once per kernel tick.
    void runBeforeOperation();

    /// When to retry what others wait for, in nanoseconds of the monotonic clock, at growing intervals; Timers::never
    /// when nothing is owed to them.
    uint64_t due() const;

private:
    void runAll();
    void answerAndRing();

    const Identity self_;
    Ownership& ownership_;
    Pool& pool_;
    Peers& peers_;
    bool owesRings_ = false;
    bool owesAnswers_ = false;  ///< only with owesRings_
    uint64_t triedAt_ = 0;      ///< tick of the last retry by an operation
    uint32_t pause_ = 0;        ///< milliseconds until what others wait for is tried again
};

}  // namespace linx

#endif
