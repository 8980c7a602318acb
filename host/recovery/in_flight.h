#ifndef LINXIPC_HOST_RECOVERY_IN_FLIGHT_H
#define LINXIPC_HOST_RECOVERY_IN_FLIGHT_H

#include "host/arena/slot_table.h"
#include "host/mailbox/take_all_stack.h"

namespace linx {

/// Whether a block in flight lies in no stack of its target slot, because `pusher` died before it pushed it. REQUIRES
/// that `pusher` has died or is the caller's own process. May wrongly say no if the slot's endpoint is at work
/// meanwhile.
inline bool isLostInFlight(const Arena& arena, BlockRef block, Spid pusher) {
    const OwnerWord owner = block->owner.loadAcquire();  // [owner]
    if (!isInFlight(owner) || !wasUsed(arena, spidOf(owner))) return false;
    const Slot& slot = arena.slot(indexOf(spidOf(owner)));
    if (stack::holds(arena, slot.mailbox, slot.mailboxClaim, block.ref)) return false;
    if (stack::holds(arena, slot.returned, slot.returnedClaim, block.ref)) return false;
    // The slot's endpoint may have taken it during the search, and others may have sent it since; then it has another
    // owner or sender, seen after holds() by [link] or [claim], and one that has died cannot become either again.
    return block->owner.loadAcquire() == owner && block->sender.loadRelaxed() == pusher;
}

}  // namespace linx

#endif
