#ifndef LINXIPC_INSPECT_SIGNALS_H
#define LINXIPC_INSPECT_SIGNALS_H

#include <unordered_set>

#include "host/arena/hunt_table.h"
#include "host/arena/runs.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/take_all_stack.h"
#include "host/record/kept.h"

namespace linx {
namespace inspect {

enum class Where {
    held,    ///< by its owner's user
    queued,  ///< in its owner's mailbox or queue
    parked,  ///< with a hunt of its owner's
    notice,  ///< kept by its owner until its sender ends
    timeout  ///< kept by its owner until it is due
};

/// Calls `visit(where, owner, block)` for every signal of the arena, a snapshot, that an open endpoint owns.
template <class Visit>
void forEachSignal(const Arena& arena, Visit visit) {
    std::unordered_set<Ref> met;
    arena.forEachUsedSlot([&](SlotIndex index, const Slot& slot) {
        const Spid owner = spidOf(slot.life.loadRelaxed());
        if (!isOpen(arena, owner)) return;
        // Links into another walk, or round in a circle, are garbage: so all walks together visit each block at most
        // once.
        stack::walkWhile(arena, stack::refOf(slot.mailbox.loadRelaxed()), [&](BlockRef block) {
            if (!isInFlightTo(block->owner.loadRelaxed(), index) || !met.insert(block.ref).second) return false;
            visit(Where::queued, owner, block);
            return true;
        });
    });
    std::unordered_set<Ref> parked;
    forEachHunt(arena, [&](const Hunt& hunt) { parked.insert(hunt.signal.loadRelaxed()); });
    forEachBlock(arena, [&](BlockRef block) {
        const OwnerWord word = block->owner.loadRelaxed();
        const Spid owner = spidOf(word);
        if (isInFlight(word) || !isOpen(arena, owner)) return;
        if (word == heldBy(owner)) return visit(Where::held, owner, block);
        if (parked.count(block.ref) != 0) return visit(Where::parked, owner, block);
        if (!isKept(*block, owner)) return visit(Where::queued, owner, block);
        const bool isNotice = block->due.loadRelaxed() == onItsSendersEnd;
        visit(isNotice ? Where::notice : Where::timeout, owner, block);
    });
}

}  // namespace inspect
}  // namespace linx

#endif
