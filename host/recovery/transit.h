#ifndef LINXIPC_HOST_RECOVERY_TRANSIT_H
#define LINXIPC_HOST_RECOVERY_TRANSIT_H

#include "host/mailbox/announced_stack.h"

namespace linx {

/// Whether a block in transit lies in no stack of the slot that it was sent to: whoever was to push it died before.
/// REQUIRES that its pusher is dead or is the caller's own process.
inline bool isStranded(const Arena& arena, const Block& block, Ref ref) {
    const uint32_t owner = block.owner.loadAcquire();
    if ((owner & ownerTransit) == 0) return false;
    const Slot& slot = arena.slot(indexOf(owner));
    if (stack::holds(arena, slot.mailbox, slot.takingMailbox, ref)) return false;
    if (stack::holds(arena, slot.returned, slot.takingReturned, ref)) return false;
    // The slot's endpoint may have taken it during the search; then it has changed the owner.
    return block.owner.loadAcquire() == owner;
}

}  // namespace linx

#endif
