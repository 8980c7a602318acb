#include "host/recovery/retire.h"

#include <algorithm>

#include "host/arena/common_stacks.h"
#include "host/arena/hunt_table.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/attention.h"
#include "host/mailbox/bell.h"
#include "host/recovery/transit.h"

namespace linx {
namespace {

/// Closes a stack of the endpoint and marks what was in it, or was being taken from it, as the endpoint's. Returns
/// whether there was anything.
template <class Belongs>
bool closeStack(const Arena& arena, Word& head, Word& taking, Spid spid, Belongs belongs) {
    bool any = false;
    const auto keep = [&](Block& block, Ref, uint32_t) {
        any = true;
        // By index: a sender that was held up may have pushed what was meant for an earlier user of the slot.
        const uint32_t owner = block.owner.loadAcquire();
        if ((owner & ownerTransit) != 0 && indexOf(owner) == indexOf(spid) && belongs(block)) {
            block.owner.storeRelease(spid | ownerQueued);
        }
    };
    stack::walk(arena, taking.loadAcquire(), keep);
    stack::walk(arena, stack::take(head, taking, stack::closed), keep);
    // Only now: one who dies before leaves the chain announced. The orders above are no weaker than the endpoint's
    // own, though it has died (Q) or is the caller.
    taking.storeRelease(0);
    return any;
}

void dropHunts(const Arena& arena, Spid spid) {
    forEachHunt(arena, [&](Hunt& hunt) {
        if (hunt.hunter.loadRelaxed() == spid) clearHunt(hunt);
    });
    trimHunts(arena);
}

bool isLeftBy(const Arena& arena, const Block& block, Spid spid) {
    // Acquire: (E). No owner or home that `spid` has overwritten is read: it has died (Q) or is the caller.
    const uint32_t owner = block.owner.loadAcquire();
    if (owner == spid || owner == (spid | ownerQueued)) return true;
    if (owner == ownerFree) return block.home.loadRelaxed() == spid;
    // On its way to the endpoint but not in its mailbox: a sender that lives finds the mailbox closed and keeps it;
    // of one that has ended nobody else would find it.
    return owner == (spid | ownerTransit) && !isOpen(arena, block.sender.loadRelaxed() & spidMask);
}

void makeBlocksCommon(const Arena& arena, Spid spid) {
    forEachBlock(arena, [&](Block& block, Ref ref, uint32_t sizeClass) {
        if (!isLeftBy(arena, block, spid)) return;
        common::orphan(arena, block, sizeClass);
        common::push(arena, block, ref, sizeClass);
    });
}

/// The endpoint may have died between giving a block its next owner and pushing it.
void recoverStrandedSend(const Arena& arena, Spid spid) {
    const Ref ref = arena.slot(indexOf(spid)).sending.loadAcquire();
    uint32_t sizeClass;
    Block* block = arena.blockAt(ref, sizeClass);
    if (block == nullptr || !isStranded(arena, *block, ref, spid)) return;
    common::orphan(arena, *block, sizeClass);
    common::push(arena, *block, ref, sizeClass);
}

/// The endpoint may have died between pushing a signal and ringing. What it pushed is seen (Q), so the looks below
/// stand in for its own: (B) after (A).
void ringForIt(const ColdSection& cold, Spid spid) {
    const Arena& arena = cold.arena();
    const uint32_t used = std::min(arena.header().slotsUsed.loadRelaxed(), slotCount - 1);
    for (uint32_t i = 1; i <= used; ++i) {
        Slot& slot = arena.slot(i);
        const uint32_t life = slot.life.loadAcquire();
        const Spid to = life & spidMask;
        if ((life & lifeOpen) == 0 || to == spid || slot.mailbox.loadSeqCst() <= stack::closed) continue;
        attention::ring(slot.attention, slot.attention.loadSeqCst(), to, indexOf(spid), [&] {
            const ScopedDescriptor bell(bell::open(cold.domain().directory(), to));
            return bell.get() == -1 ? errno : bell::ring(bell.get());
        });
    }
}

}  // namespace

void retire(const ColdSection& cold, Spid spid, Leftovers leftovers) {
    const Arena& arena = cold.arena();
    if (!isSpid(spid) || !isOpen(arena, spid)) return;
    Slot& slot = arena.slot(indexOf(spid));
    const auto any = [](const Block&) { return true; };
    const bool hadMail = closeStack(arena, slot.mailbox, slot.takingMailbox, spid, any);
    // The endpoint may have died with a chain announced that a reclaiming process then took. A block of it may be on
    // its way here again, but then another is its home.
    const auto isAtHome = [&](const Block& block) { return indexOf(block.home.loadRelaxed()) == indexOf(spid); };
    const bool hadReturns = closeStack(arena, slot.returned, slot.takingReturned, spid, isAtHome);
    dropHunts(arena, spid);
    if (leftovers == Leftovers::anything) recoverStrandedSend(arena, spid);
    if (leftovers != Leftovers::none || hadMail || hadReturns) makeBlocksCommon(arena, spid);
    if (leftovers == Leftovers::anything) ringForIt(cold, spid);
    bell::remove(cold.domain().directory(), spid);
    removeName(arena, indexOf(spid));
    // Last: until here the endpoint counts as open, and whoever meets it reaps it again. Release: (L).
    slot.life.storeRelease(spid);
    appendEnded(arena, indexOf(spid));
}

bool hasDied(const Domain& domain, Spid spid) {
    const int before = errno;
    const ScopedDescriptor bell(bell::open(domain.directory(), spid));
    const bool died = bell.get() == -1 && (errno == ENXIO || errno == ENOENT);
    if (died) errno = before;
    return died;
}

bool reap(const Domain& domain, Spid spid) {
    if (!isOpen(domain.arena(), spid)) return true;
    const ColdSection cold(domain);
    if (cold.entered()) retire(cold, spid, Leftovers::anything);
    return cold.entered();
}

void reapAllDead(const ColdSection& cold) {
    const uint32_t used = std::min(cold.arena().header().slotsUsed.loadRelaxed(), slotCount - 1);
    for (uint32_t i = 1; i <= used; ++i) {
        const uint32_t life = cold.arena().slot(i).life.loadAcquire();
        const Spid spid = life & spidMask;
        if ((life & lifeOpen) != 0 && hasDied(cold.domain(), spid)) retire(cold, spid, Leftovers::anything);
    }
}

}  // namespace linx
