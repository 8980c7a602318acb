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
 *   queued         in flight   who answers its owner's hunt; or its owner, out of memory to queue it after all
 *   in flight      queued      its owner, which takes its mailbox; who ends that one, or could not answer it
 *   in flight      held        its sender, which could not push it; or its owner, where it was an earlier one's
 *   in flight      free        its owner, which takes what has come back
 *   held, queued   free        its owner, which keeps it in its pool
 *   any            free        who has the domain lock: of one that has ended, or for the central lists
 *
 * An owner writes the next owner before it gives the block away; from then on the block is not its any more.
 *
 * An owner that one writes for oneself is relaxed: others ask for it only when one has died, and see it then [death],
 * or found the block in a chain of the past, and see it by [link] or [claim]. Before another's, `home` and `sender`
 * are written, and the owner is a release [owner]. The payload is no atomic and needs none: it goes with the
 * compare-and-swap [pushed] or the domain lock, and nobody but the owner touches it.
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
