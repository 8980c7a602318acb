#include "host/recovery/repair.h"

#include "host/arena/central_lists.h"
#include "host/arena/hunt_table.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/broadcast.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/recovery/domain_lock.h"
#include "host/recovery/in_flight.h"

namespace linx {
namespace {

// All below is under the domain lock, left by a dead holder [death]: relaxed. Releases keep the order if this one
// dies.

/// A lease writes a run's first entry last and giving a run up clears it first: entries without a first one are
/// nobody's.
void clearHalfRuns(const Arena& arena) {
    const uint32_t used = arena.usedPages();
    forgetGaps(arena);
    for (PageIndex page{}; page < used;) {
        SizeClassId sizeClass;
        if (runStartsAt(arena, page, sizeClass)) {
            page = PageIndex{page + sizeClasses[sizeClass].pages};
        } else {
            arena.pageEntry(page).storeRelaxed(0);
            page = PageIndex{page + 1};
        }
    }
}

/// Whether a hunt is unanswered: its signal is queued for the hunter and posting had not begun, or it is in flight
/// but in no mailbox, which is searched while `searches` are left.
bool isPending(const Arena& arena, const Hunt& hunt, uint32_t& searches) {
    const HunterWord word = hunt.hunter.loadRelaxed();
    const Spid hunter = spidOf(word);
    const BlockRef signal = arena.blockAt(hunt.signal.loadRelaxed());
    if (!isOpen(arena, hunter) || !signal) return false;
    const OwnerWord owner = signal->owner.loadAcquire();
    if (owner == inFlightTo(hunter)) {
        const Spid poster = senderOf(*signal);
        // Answering leaves `sending` alone: this one got it from the hunter and is sending or returning it. [sending]
        const bool comesBack = poster != hunter && wasUsed(arena, poster) &&
                               arena.slot(indexOf(poster)).sending.loadAcquire() == signal.ref;
        if (comesBack || searches == 0) return false;
        --searches;
        return isLostInFlight(arena, signal, poster);
    }
    return owner == queuedFor(hunter) && !isAnswering(word);
}

/// An opening process died while it answered hunts.
void finishAnswering(const Arena& arena) {
    // Hunts are answered one at a time: a death leaves at most one to search for, and garbage must not have long
    // mailboxes searched for each.
    uint32_t searches = 1;
    forEachHunt(arena, [&](Hunt& hunt) {
        if (!isPending(arena, hunt, searches)) return clearHunt(hunt);
        const Spid hunter = spidOf(hunt.hunter.loadRelaxed());
        const BlockRef signal = arena.blockAt(hunt.signal.loadRelaxed());
        if (!signal) return;
        // In this order, so that a death in between leaves the hunt pending.
        hunt.hunter.storeRelease(huntedBy(hunter));
        signal->sender.storeRelaxed(hunter);
        signal->owner.storeRelease(queuedFor(hunter));
    });
    trimHunts(arena);
}

/// An opening process died when a sender that knew an earlier user of the slot could already push into it: the
/// endpoint is opened, so that what was pushed is found when it is reaped.
void finishOpening(const Arena& arena) {
    arena.forEachUsedSlot([](SlotIndex, Slot& slot) {
        const LifeWord life = slot.life.loadRelaxed();
        const bool isClosed = stack::refOf(slot.mailbox.loadRelaxed()) == stack::closed;
        // Release [opened]: as the store that the opener would have done.
        if (life != LifeWord::neverUsed && !isClosed) slot.life.storeRelease(openAs(spidOf(life)));
    });
}

void rebuildNames(const Arena& arena) {
    // A concurrent hunt may miss a name; it looks again under the lock before it gives up.
    for (uint32_t i = 0; i < slotCount; ++i) {
        // Most are empty and read concurrently: no store, so that they stay in the readers' caches.
        WordOf<SlotIndex>& bucket = arena.bucket(i);
        if (bucket.loadRelaxed() != SlotIndex::none) bucket.storeRelaxed(SlotIndex::none);
    }
    arena.forEachUsedSlot([&](SlotIndex index, const Slot& slot) {
        if (isOpen(slot.life.loadRelaxed())) insertName(arena, index);
    });
}

void removeStaleDoorbells(const Arena& arena, int directory) {
    arena.forEachUsedSlot([&](SlotIndex, const Slot& slot) {
        const LifeWord life = slot.life.loadRelaxed();
        if (!isOpen(life) && life != LifeWord::neverUsed) doorbell::remove(directory, spidOf(life));
    });
}

}  // namespace

void repair(const DomainLock& lock) {
    const Arena& arena = lock.arena();
    clearHalfRuns(arena);
    central::rebuild(arena);
    finishAnswering(arena);
    finishOpening(arena);
    rebuildNames(arena);
    rebuildQuarantine(arena);
    recountOpen(arena);
    removeStaleDoorbells(arena, lock.domain().directory());
    tellOfEnds(lock.domain());  // the one that died may have been about to
}

}  // namespace linx
