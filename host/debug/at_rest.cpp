#include "host/debug/at_rest.h"

#include <unordered_map>

#include "host/arena/central_lists.h"
#include "host/arena/name_table.h"
#include "host/arena/runs.h"
#include "host/arena/share.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/introduction.h"
#include "host/mailbox/take_all_stack.h"

namespace linx {
namespace debug {
namespace {

class AtRest {
public:
    AtRest(const Arena& arena, Findings& findings) : arena_(arena), findings_(findings) {}

    void check() {
        checkUnusedPages();
        visitCentralLists();
        arena_.forEachUsedSlot([this](SlotIndex index, const Slot& slot) {
            checkStacks(index, slot);
            checkEvents(index, slot);
        });
        forEachBlock(arena_, [this](BlockRef block) { place(block); });
        arena_.forEachUsedSlot([this](SlotIndex index, const Slot& slot) {
            if (!isOpenSlot(slot)) return;
            checkShare(index, slot);
            checkName(index, slot);
        });
    }

private:
    template <class Where>
    void broken(const Where& where, const char* invariant, const std::string& details = {}) {
        note(findings_, where, invariant, details);
    }

    static bool isOpenSlot(const Slot& slot) { return isOpen(slot.life.loadRelaxed()); }
    static Spid userOf(const Slot& slot) { return spidOf(slot.life.loadRelaxed()); }

    void checkUnusedPages() {
        for (uint32_t page = arena_.usedPages(); page < arena_.pageCount(); ++page) {
            if (arena_.pageEntry(PageIndex{page}).loadRelaxed() != 0)
                broken(Subject{"page", page}, "it is free from pagesUsed on");
        }
    }

    /// Whether the block has not been met in another place.
    bool visit(Ref ref, const Subject& place) {
        const auto [known, isNew] = places_.insert({ref, place});
        if (!isNew) {
            broken(Subject{"block", ref}, "it is in one place", place.text() + " and " + known->second.text());
        }
        return isNew;
    }

    void visitCentralLists() {
        for (uint32_t c = 0; c < sizeClassCount; ++c) {
            BlockRef block = arena_.blockAt(arena_.header().central[c].loadRelaxed());
            while (block && visit(block.ref, {"central list", c})) block = arena_.blockAt(block->next.loadRelaxed());
        }
    }

    void checkStacks(SlotIndex index, const Slot& slot) {
        const Subject self = {"slot", index};
        const StackHead mailbox = slot.mailbox.loadRelaxed();
        const StackHead returned = slot.returned.loadRelaxed();
        expectEqual(findings_, self, "mailboxClaim = none", slot.mailboxClaim.loadRelaxed(), Ref::none);
        expectEqual(findings_, self, "returnedClaim = none", slot.returnedClaim.loadRelaxed(), Ref::none);
        if (isOpenSlot(slot)) {
            expectEqual(findings_, self, "tag of mailbox = tag of partings", stack::tagOf(mailbox),
                        introduction::tagAt(slot.partings.loadRelaxed()));
            checkStack(index, mailbox, "mailbox");
            checkStack(index, returned, "returned stack");
        } else if (stack::holdsBlocks(mailbox) || stack::holdsBlocks(returned)) {
            broken(self, "its stacks are empty unless it is open");
        }
    }

    void checkStack(SlotIndex index, StackHead head, const char* kind) {
        const Subject self = {kind, index};
        Ref ref = stack::refOf(head);
        while (ref != stack::empty) {
            const BlockRef block = arena_.blockAt(ref);
            if (!block) return broken(self, "its links lead from block to block", std::to_string(numberOf(ref)));
            // Or in flight to an earlier user of the slot, from a sender that was held up.
            if (!isInFlightTo(block->owner.loadRelaxed(), index)) {
                broken(Subject{"block", ref}, "the blocks of a stack are in flight to its slot", self.text());
            }
            if (!visit(ref, self)) return;
            ref = block->next.loadRelaxed();
        }
    }

    /// A slot's user whom none of its events is recorded of has asked for that.
    void checkEvents(SlotIndex index, const Slot& slot) {
        const EventRing& ring = arena_.events(index);
        const uint32_t last = slot.recorded.loadRelaxed();
        uint32_t whole = 0;
        uint32_t missing = 0;
        for (uint32_t back = 0; back < eventCount - 1; ++back) {
            const uint32_t event = last - back * eventStep;
            const uint32_t found = ring.at(event).event.loadRelaxed();
            if (kindOf(found) > EventKind::closed) broken(Subject{"slot", index}, "the kinds of its events are known");
            const bool isWhole = countOf(found) == countOf(event) && kindOf(found) != EventKind::none;
            if (isWhole && kindOf(found) == EventKind::opened) break;
            if (isWhole) ++whole;
            if (!isWhole && back != 0) ++missing;
        }
        if (whole != 0 && missing != 0) {
            broken(Subject{"slot", index}, "its events since it was opened are whole, but for the last and the oldest",
                   std::to_string(missing) + " are not");
        }
    }

    void place(BlockRef block) {
        const OwnerWord owner = block->owner.loadRelaxed();
        const Spid home = block->home.loadRelaxed();
        const bool isListed = places_.count(block.ref) != 0;
        Census& census = findings_.census;
        ++census.blocks;
        linesAt_[home] += linesOfClass(block.sizeClass);
        if (owner == OwnerWord::free && home == noHome) {
            ++census.central;
            if (!isListed) broken(Subject{"block", block.ref}, "without owner and home it is in a central list");
        } else if (isListed) {
            ++census.inStacks;
        } else if (owner == OwnerWord::free) {
            keepOrLose(isOpen(arena_, home), census.atHome, block.ref, "without owner, its home is open");
        } else if (isInFlight(owner)) {
            keepOrLose(false, census.inStacks, block.ref, "in flight, it is in a stack");
        } else {
            keepOrLose(isOpen(arena_, spidOf(owner)), census.owned, block.ref, "held or queued, its owner is open");
        }
    }

    void keepOrLose(bool isKept, uint32_t& kept, Ref ref, const char* invariant) {
        ++(isKept ? kept : findings_.census.lost);
        if (!isKept) broken(Subject{"block", ref}, invariant);
    }

    void checkShare(SlotIndex index, const Slot& slot) {
        const Spid spid = userOf(slot);
        const uint32_t counted = share::linesOf(slot);
        const uint32_t lines = linesAt_[spid];
        if ((slot.leasedLines.loadRelaxed() & ~share::lineMask) != share::tagOf(spid)) {
            broken(Subject{"slot", index}, "leasedLines and life are of one generation");
        }
        if (counted > lines) {
            findings_.smallerShares.push_back(Subject{"slot", index}.text() + ": " + shareEquation + " (" +
                                              std::to_string(counted) + " and " + std::to_string(lines) + ")");
        } else {
            expectEqual(findings_, Subject{"slot", index}, shareEquation, counted, lines);
        }
    }

    void checkName(SlotIndex index, const Slot& slot) {
        Name name;
        const bool isFound = nameOfSpid(arena_, userOf(slot), name) && findName(arena_, name) == userOf(slot);
        if (!isFound) broken(Subject{"slot", index}, "findName(its name) = its spid", name.text());
    }

    static constexpr const char* shareEquation = "leasedLines = lines of the blocks whose home it is";

    const Arena& arena_;
    Findings& findings_;
    std::unordered_map<Ref, Subject> places_;     ///< of the blocks in lists and stacks
    std::unordered_map<Spid, uint32_t> linesAt_;  ///< by home
};

}  // namespace

void checkAtRest(const Arena& arena, Findings& findings) {
    AtRest(arena, findings).check();
}

}  // namespace debug
}  // namespace linx
