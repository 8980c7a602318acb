#include "host/recovery/retire.h"

#include <algorithm>
#include <cerrno>

#include "host/arena/central_lists.h"
#include "host/arena/hunt_table.h"
#include "host/arena/slot_table.h"
#include "host/arena/throttle.h"
#include "host/mailbox/broadcast.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/record/probes.h"
#include "host/recovery/lost_in_flight.h"

namespace linx {
namespace {

/// Closes a stack of the endpoint and marks what was in it, or was being taken from it, as the endpoint's. Returns
/// whether there was anything.
bool closeStack(const Arena& arena, WordOf<StackHead>& head, WordOf<Ref>& claim, Spid spid) {
    bool any = false;
    const auto keep = [&](BlockRef block) {
        any = true;
        // By index: a sender that was held up may have pushed what was meant for an earlier user of the slot.
        const bool isItsOwn = isInFlightTo(block->owner.loadAcquire(), indexOf(spid));
        if (isItsOwn) block->owner.storeRelease(queuedFor(spid));
    };
    // The orders are no weaker than the endpoint's own, though it has died [death] or is the caller.
    stack::walk(arena, claim.loadAcquire(), keep);
    stack::takeAll(arena, head, claim, stack::closed, keep);
    return any;
}

bool closeStacks(const Arena& arena, Spid spid) {
    Slot& slot = arena.slot(indexOf(spid));
    const bool hadMail = closeStack(arena, slot.mailbox, slot.mailboxClaim, spid);
    const bool hadReturns = closeStack(arena, slot.returned, slot.returnedClaim, spid);
    return hadMail || hadReturns;
}

void dropHunts(const Arena& arena, const SlotSet& ending) {
    forEachHunt(arena, [&](Hunt& hunt) {
        if (ending.contains(spidOf(hunt.hunter.loadRelaxed()))) clearHunt(hunt);
    });
    trimHunts(arena);
}

bool isLeftBy(const Arena& arena, const Block& block, const SlotSet& ending) {
    // Acquire [owner]. What an ending endpoint has overwritten is not read: it has died [death] or is the caller.
    const OwnerWord owner = block.owner.loadAcquire();
    if (owner == OwnerWord::free) return ending.contains(block.home.loadRelaxed());
    if (!ending.contains(spidOf(owner))) return false;
    // In flight to the endpoint but not in its mailbox: a live sender finds the mailbox closed and keeps it; if the
    // sender has ended, nobody else would find it.
    return !isInFlight(owner) || !isOpen(arena, senderOf(block));
}

void abandonBlocks(const Arena& arena, const SlotSet& ending) {
    forEachBlock(arena, [&](BlockRef block) {
        if (!isLeftBy(arena, *block, ending)) return;
        central::abandon(arena, block);
        central::push(arena, block);
    });
}

/// Ends endpoints together: however many they are, the arena is looked through once.
void retireAll(const DomainLock& lock, const SlotSet& ending, Leftovers leftovers) {
    if (ending.empty()) return;
    const Arena& arena = lock.arena();
    bool leftSome = leftovers != Leftovers::none;
    ending.forEach([&](Spid spid) { leftSome = closeStacks(arena, spid) || leftSome; });
    dropHunts(arena, ending);
    if (leftovers == Leftovers::anything) recoverLostInFlight(lock, ending);
    if (leftSome) abandonBlocks(arena, ending);
    // They may have died between pushing a signal and ringing. What they pushed is seen [death].
    if (leftovers == Leftovers::anything) ringSleepers(lock.domain());
    ending.forEach([&](Spid spid) {
        doorbell::remove(lock.domain().directory(), spid);
        removeName(arena, indexOf(spid));
        // Last: until here the endpoint counts as open, and whoever meets it reaps it again. Release [ended].
        arena.slot(indexOf(spid)).life.storeRelease(closedAs(spid));
        quarantine(arena, indexOf(spid));
        countEnded(arena);
    });
}

}  // namespace

void retire(const DomainLock& lock, Spid spid, Leftovers leftovers) {
    SlotSet ending(lock.arena());
    ending.insert(spid);
    retireAll(lock, ending, leftovers);
}

bool hasDied(const Domain& domain, Spid spid) {
    const int before = errno;
    const ScopedDescriptor doorbell(doorbell::open(domain.directory(), spid));
    const bool died = doorbell.get() == -1 && (errno == ENXIO || errno == ENOENT);
    if (died) errno = before;
    return died;
}

void reap(const DomainLock& lock, const Spid* dead, size_t count) {
    SlotSet ending(lock.arena());
    std::for_each(dead, dead + count, [&](Spid spid) {
        if (!isOpen(lock.arena(), spid)) return;
        probes::reap(spid);
        ending.insert(spid);
    });
    retireAll(lock, ending, Leftovers::anything);
}

void reapAllDead(const DomainLock& lock) {
    Throttle(lock.arena().header().reaping).run([&] {
        SlotSet ending(lock.arena());
        lock.arena().forEachUsedSlot([&](SlotIndex index, const Slot& slot) {
            const LifeWord life = slot.life.loadRelaxed();  // [lock]
            const Spid spid = spidOf(life);
            if (isOpen(life) && indexOf(spid) == index && hasDied(lock.domain(), spid)) {
                probes::reap(spid);
                ending.insert(spid);
            }
        });
        retireAll(lock, ending, Leftovers::anything);
    });
}

bool reapAllDeadIfDue(const DomainLock& lock) {
    const bool isDue = Throttle(lock.arena().header().reaping).isDue();
    if (isDue) reapAllDead(lock);
    return isDue;
}

}  // namespace linx
