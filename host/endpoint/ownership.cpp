#include "host/endpoint/ownership.h"

#include "host/record/maker.h"

namespace linx {

Ownership::Ownership(const Identity& self)
    : self_(self),
      entry_(forks::stamp()),
      nextEntry_(forks::stamp()),
      forksSeen_(forks::stamp()),
      generation_(forks::generation()),
      forkRound_(self.slot.forkRound.loadRelaxed()) {}

Ownership::Entry Ownership::enter() {
    uint32_t stamp;
    if (!occupy(stamp)) return isMaker() ? Entry::occupied : Entry::copied;
    return forksSeen_ == stamp || claim(stamp) ? Entry::entered : Entry::lost;
}

/// Marks the endpoint as entered unless it already is; a child forked from then on finds the mark. `stamp` becomes
/// the process's stamp.
bool Ownership::occupy(uint32_t& stamp) {
    for (;;) {
        forks::awaitFork();
        const uint32_t entry = entry_.load(std::memory_order_relaxed);
        if (entry == inside) return false;
        entry_.store(inside, std::memory_order_relaxed);
        forks::afterEntering();
        stamp = forks::stamp();
        if (stamp != forks::forking) return true;
        entry_.store(entry, std::memory_order_relaxed);
    }
}

/// Whether this is the process that has the endpoint, or had it before a fork in which it was the parent.
bool Ownership::isMaker() const {
    return generation_ == forks::generation() && !forks::isSmuggled(generation_);
}

/// After a fork both processes hold the same copy of this object; the slot's round, raised once, tells them apart.
/// One compare-and-swap decides and publishes nothing, so any order would do.
bool Ownership::claim(uint32_t stamp) {
    uint32_t round = forkRound_;
    const bool mayHave = !disowned_ && !forks::isSmuggled(generation_) && self_.isStillOpen();
    if (!mayHave || !self_.slot.forkRound.casSeqCst(round, forkRound_ + 1)) {
        disowned_ = true;
        return false;
    }
    forkRound_ += 1;
    const bool isOverdue = nextEntry_ == overdue;
    forksSeen_ = stamp;
    setOverdue(isOverdue);
    generation_ = forks::generation();
    self_.slot.maker = makerNow();
    return true;
}

Ownership::Departure Ownership::leave() {
    uint32_t stamp;
    if (!occupy(stamp)) return isMaker() ? Departure::refused : Departure::forgotten;
    const bool isUnclaimed = !disowned_ && self_.isStillOpen() && self_.slot.forkRound.loadRelaxed() == forkRound_;
    if (isUnclaimed && !isMaker()) {
        disowned_ = true;  // only this copy goes: the endpoint stays with the other process
        return Departure::leaves;
    }
    const bool isOurs = !disowned_ && forksSeen_ == stamp;
    return isOurs || claim(stamp) ? Departure::leaves : Departure::stays;
}

}  // namespace linx
