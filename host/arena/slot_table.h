#ifndef LINXIPC_HOST_ARENA_SLOT_TABLE_H
#define LINXIPC_HOST_ARENA_SLOT_TABLE_H

#include "host/arena/arena.h"

namespace linx {

/// The slots and the order in which they are used again. All but isOpen and everExisted need the domain lock.
/// Slots that were never used come first, then those in quarantine, which is where slots go whose endpoints have
/// ended: the oldest first, so that the name of an ended endpoint can be asked for as long as possible.

/// Whether the slot has been used: one that never was may not even have memory.
inline bool wasUsed(const Arena& arena, Spid spid) {
    // Relaxed: the slot's own life says the rest. Who has the spid from its endpoint, reads a count that includes it.
    return isSpid(spid) && numberOf(indexOf(spid)) <= arena.header().slotsUsed.loadRelaxed() &&
           arena.hasSlot(indexOf(spid));
}

inline bool isOpen(const Arena& arena, Spid spid) {
    // Acquire [opened]: pairs with the release that opened the endpoint; its mailbox is ready. A no is [ended]: what
    // it had sent is seen. A stale yes is harmless: the push finds the mailbox closed, or lands with the slot's next
    // owner, which drops it.
    return wasUsed(arena, spid) && arena.slot(indexOf(spid)).life.loadAcquire() == openAs(spid);
}

/// Whether `spid` names an endpoint that is open or has ended.
inline bool everExisted(const Arena& arena, Spid spid) {
    if (!wasUsed(arena, spid)) return false;
    const Spid current = spidOf(arena.slot(indexOf(spid)).life.loadAcquire());  // [opened], [ended]
    return current != Spid::none && (current == spid || isEarlier(spid, current));
}

/// Takes the slot that is next in turn. Where there is no memory for a fresh one, the oldest in quarantine is next.
/// None with errno ENOSPC when all are open, ENOMEM when there is no memory and none has ended.
SlotIndex takeSlot(const Arena& arena);

/// Puts a slot whose endpoint has ended into quarantine.
void quarantine(const Arena& arena, SlotIndex index);

/// Makes the quarantine anew from the slots themselves.
void rebuildQuarantine(const Arena& arena);

/// Keeps count of the open endpoints, and counts them anew.
inline void countOpened(const Arena& arena) {
    Word& open = arena.header().openEndpoints;
    open.storeRelaxed(open.loadRelaxed() + 1);
}
inline void countEnded(const Arena& arena) {
    Word& open = arena.header().openEndpoints;
    open.storeRelaxed(open.loadRelaxed() - 1);
}
void recountOpen(const Arena& arena);

}  // namespace linx

#endif
