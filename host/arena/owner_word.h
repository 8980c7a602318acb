#ifndef LINXIPC_HOST_ARENA_OWNER_WORD_H
#define LINXIPC_HOST_ARENA_OWNER_WORD_H

#include "host/arena/spid.h"

namespace linx {

/*
 * Who may touch a block: its owner, and nobody else.
 *
 *   free            in a free list of `home`, or in the central lists when there is no home
 *   held by E       given out to E's user by an allocation or a receive
 *   queued for E    kept for E: in its private queue, or parked for a hunt, an attach or a time-out
 *   in flight to E  about to be pushed onto E's mailbox or returned stack by `sender`, in there, or being taken out
 *
 *   from           to          by whom
 *   free           held        its home, which allocates it
 *   held           queued      its owner, which parks it
 *   queued         held        its owner, which receives it, or had parked it in vain
 *   held, queued   in flight   its owner, which is about to send it, or to give it back
 *   queued         in flight   the answerer of its owner's hunt; or its owner, to undo a failed queueing
 *   in flight      queued      its owner, which takes its mailbox; the process that ends it, or fails to answer it
 *   in flight      held        its sender, if the push failed; or its owner, if meant for an earlier user
 *   in flight      free        its owner, which takes what has come back
 *   held, queued   free        its owner, which keeps it in its pool
 *   any            free        the domain lock's holder: the owner has ended, or for the central lists
 *
 * An owner writes the next owner before it gives the block away; from then on the block is not its any more.
 *
 * An endpoint writes itself as owner relaxed: others read that only after its death, and see it then [death], or find
 * the block in an old chain, and see it by [link] or [claim]. Before writing another owner, `home` and `sender` are
 * written, and the owner is a release [owner]. The payload is not atomic and need not be: it is ordered by the
 * compare-and-swap [pushed] or the domain lock, and only the owner touches it.
 */
enum class OwnerWord : uint32_t { free = 0 };

constexpr uint32_t ownerQueued = 1u << 30;
constexpr uint32_t ownerInFlight = 1u << 31;

constexpr OwnerWord heldBy(Spid spid) {
    return OwnerWord{numberOf(spid)};
}
constexpr OwnerWord queuedFor(Spid spid) {
    return OwnerWord{numberOf(spid) | ownerQueued};
}
constexpr OwnerWord inFlightTo(Spid spid) {
    return OwnerWord{numberOf(spid) | ownerInFlight};
}

/// None of one that is free.
constexpr Spid spidOf(OwnerWord owner) {
    return Spid{numberOf(owner) & spidMask};
}
constexpr bool isInFlight(OwnerWord owner) {
    return (numberOf(owner) & ownerInFlight) != 0;
}

/// Whether it is on its way to the slot: perhaps to an earlier user of it, from a sender that was held up.
constexpr bool isInFlightTo(OwnerWord owner, SlotIndex index) {
    const uint32_t difference = numberOf(owner) ^ (ownerInFlight | numberOf(index));
    return (difference & (ownerInFlight | (slotCount - 1))) == 0;
}

}  // namespace linx

#endif
