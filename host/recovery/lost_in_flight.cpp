#include "host/recovery/lost_in_flight.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "host/arena/central_lists.h"
#include "host/mailbox/take_all_stack.h"

namespace linx {
namespace {

/// A block that one of the dead was to push, or has pushed.
struct Sending {
    BlockRef block;
    OwnerWord owner;
    Spid sender;
    bool pushed;

    SlotIndex target() const { return indexOf(spidOf(owner)); }

    /// Whether it has not been taken. Acquire [owner]: as when it was found; a taker has changed owner or sender,
    /// seen after the search of the stacks by [link] or [claim], and a dead endpoint cannot become either again.
    bool isUnchanged() const { return block->owner.loadAcquire() == owner && block->sender.loadRelaxed() == sender; }
};

/// Whether the endpoint's `sending` names a block on its way somewhere.
bool isSending(const Arena& arena, Spid dead, Sending& found) {
    found.block = arena.blockAt(arena.slot(indexOf(dead)).sending.loadAcquire());
    if (!found.block) return false;
    // The owner first [owner]: whoever sends a block writes its sender before.
    found.owner = found.block->owner.loadAcquire();
    found.sender = dead;
    found.pushed = false;
    return isInFlight(found.owner) && found.block->sender.loadRelaxed() == dead &&
           wasUsed(arena, spidOf(found.owner));
}

/// Looks for blocks in the stacks that they were sent to. Sorted by target, so that each stack is walked once: a
/// mailbox may be long, and many may have died over it.
class Search {
public:
    explicit Search(const Arena& arena) : arena_(arena), steps_(stepsPerBlock * uint64_t{arena.maxBlocks()}) {}

    void markPushed(Sending* first, Sending* last) {
        const auto order = [](const Sending& a, const Sending& b) {
            return std::make_tuple(a.target(), a.block.ref) < std::make_tuple(b.target(), b.block.ref);
        };
        std::sort(first, last, order);
        while (first != last) {
            Sending* end = first;
            while (end != last && end->target() == first->target()) ++end;
            lookInto(arena_.slot(first->target()), first, end);
            first = end;
        }
    }

private:
    /// No two stacks share a block, so all of them together are soon walked, unless somebody scribbled over the
    /// links.
    static constexpr uint64_t stepsPerBlock = 16;

    void lookInto(const Slot& slot, Sending* first, Sending* last) {
        // The heads before what is being taken: a chain taken after the look at a head was claimed before it left
        // the head [taken].
        walk(stack::refOf(slot.mailbox.loadSeqCst()), first, last);
        walk(slot.mailboxClaim.loadSeqCst(), first, last);
        walk(stack::refOf(slot.returned.loadSeqCst()), first, last);
        walk(slot.returnedClaim.loadSeqCst(), first, last);
    }

    void walk(Ref chain, Sending* first, Sending* last) {
        if (steps_ != 0)
            stack::walkWhile(arena_, chain, [&](BlockRef block) {
                const auto found = std::lower_bound(
                    first, last, block.ref, [](const Sending& one, Ref wanted) { return one.block.ref < wanted; });
                if (found != last && found->block.ref == block.ref) found->pushed = true;
                return --steps_ != 0;
            });
        if (steps_ == 0) std::for_each(first, last, [](Sending& one) { one.pushed = true; });
    }

    const Arena& arena_;
    uint64_t steps_;
};

}  // namespace

void recoverLostInFlight(const DomainLock& lock, const SlotSet& dead) {
    const Arena& arena = lock.arena();
    Search search(arena);
    std::array<Sending, 128> some;
    size_t count = 0;
    const auto recover = [&] {
        search.markPushed(some.begin(), some.begin() + count);
        for (size_t i = 0; i < count; ++i) {
            if (some[i].pushed || !some[i].isUnchanged()) continue;
            central::abandon(arena, some[i].block);
            central::push(arena, some[i].block);
        }
        count = 0;
    };
    dead.forEach([&](Spid spid) {
        if (isSending(arena, spid, some[count]) && ++count == some.size()) recover();
    });
    recover();
}

}  // namespace linx
