#include "host/endpoint/chores.h"

#include <algorithm>

#include "host/arena/slot_table.h"
#include "host/endpoint/answers.h"
#include "host/endpoint/timers.h"
#include "host/mailbox/broadcast.h"
#include "host/system/clock.h"

namespace linx {
namespace {

constexpr uint32_t longestPause = 1000;  ///< milliseconds

}  // namespace

void Chores::oweRing() {
    owesRings_ = true;
    ownership_.setOverdue(true);
}

void Chores::oweAnswers() {
    owesAnswers_ = true;
    oweRing();
}

void Chores::answerAndRing() {
    if (owesAnswers_) {
        const DomainLock lock(self_.domain, DomainLock::Patience::tryOnce);
        Name name;
        if (lock.isHeld() && nameOfSpid(self_.arena(), self_.spid, name)) {
            owesAnswers_ = !answerHunts(lock, self_.spid, name);
        }
    }
    owesRings_ = !ringSleepers(self_.domain, indexOf(self_.spid)) || owesAnswers_;
    ownership_.setOverdue(owesRings_);
}

void Chores::runBeforeOperation() {
    if (!owesRings_) return;
    const uint64_t tick = coarseMilliseconds();
    if (tick != triedAt_) answerAndRing();  // all slots are looked at: too much for each operation
    triedAt_ = tick;
}

void Chores::runAll() {
    if (owesRings_) answerAndRing();
    peers_.reapDead(DomainLock::Patience::tryOnce);
    if (pool_.isUnderPressure()) pool_.yieldToPressure();
    pause_ = owesOthers() ? std::min(2 * pause_ + 1, longestPause) : 0;
}

uint64_t Chores::due() const {
    return owesOthers() ? now() + std::max(pause_, 1u) * nanosecondsPerMillisecond : Timers::never;
}

}  // namespace linx
