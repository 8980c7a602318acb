#include "host/debug/guarded.h"

#include <algorithm>

#include "host/arena/central_lists.h"
#include "host/arena/hunt_table.h"
#include "host/arena/runs.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/wake_state.h"

namespace linx {
namespace debug {
namespace {

// Relaxed: the domain lock orders it [lock].

class Guarded {
public:
    Guarded(const Arena& arena, Findings& findings)
        : arena_(arena), header_(arena.header()), findings_(findings), usedSlots_(arena.usedSlots()) {}

    void check() {
        checkBounds();
        checkPages();
        checkCentralLists();
        checkSlots();
        checkQuarantine();
        checkNames();
        checkHunts();
    }

private:
    template <class Where>
    void broken(const Where& where, const char* invariant, const std::string& details = {}) {
        note(findings_, where, invariant, details);
    }

    bool isOpenSlot(SlotIndex index) const { return isOpen(arena_.slot(index).life.loadRelaxed()); }
    bool isUsedSlot(SlotIndex index) const { return index != SlotIndex::none && numberOf(index) <= usedSlots_; }

    void checkBounds() {
        if (header_.slotsUsed.loadRelaxed() >= slotCount) broken("header", "slotsUsed < slots");
        if (header_.huntsUsed.loadRelaxed() > huntCount) broken("header", "huntsUsed <= hunts");
        if (header_.pagesUsed.loadRelaxed() > arena_.pageCount()) broken("header", "pagesUsed <= pageCount");
    }

    void checkPages() {
        const uint32_t used = arena_.usedPages();
        uint32_t gap = 0;
        uint32_t longestGap = 0;
        for (PageIndex page{}; page < used;) {
            SizeClassId sizeClass;
            if (runStartsAt(arena_, page, sizeClass)) {
                checkRun(page, sizeClass);
                page = PageIndex{page + sizeClasses[sizeClass].pages};
                gap = 0;
            } else {
                checkFree(page);
                page = PageIndex{page + 1};
                longestGap = std::max(longestGap, ++gap);
            }
        }
        if (header_.longestGap.loadRelaxed() < longestGap) {
            broken("header", "longestGap >= free pages side by side", std::to_string(longestGap));
        }
    }

    void checkRun(PageIndex first, SizeClassId sizeClass) {
        for (uint32_t back = 0; back < sizeClasses[sizeClass].pages; ++back) {
            const uint32_t entry = arena_.pageEntry(PageIndex{first + back}).loadRelaxed();
            if (entry != makePageEntry(sizeClass, back)) broken(Subject{"page", first + back}, ofOneRun);
        }
    }
    void checkFree(PageIndex page) {
        if (arena_.pageEntry(page).loadRelaxed() != 0) broken(Subject{"page", page}, ofOneRun);
    }

    void checkCentralLists() {
        const uint32_t counted = header_.centralLines.loadRelaxed();
        const uint32_t most = std::min(counted, arena_.pageCount() * linesPerPage);  // or it is garbage
        uint64_t lines = 0;
        for (uint32_t c = 0; c < sizeClassCount; ++c) {
            Ref ref = header_.central[c].loadRelaxed();
            while (ref != Ref::none && lines <= most) {
                const BlockRef block = arena_.blockAt(ref);
                if (!block || block.sizeClass != c || !central::isHomeless(*block)) {
                    return broken(Subject{"central list", c}, "its blocks are of its class, free and without a home",
                                  "block " + std::to_string(numberOf(ref)));
                }
                lines += sizeClasses[c].lines;
                ref = block->next.loadRelaxed();
            }
        }
        expectEqual(findings_, "header", "centralLines = lines in the central lists", counted,
                    static_cast<uint32_t>(lines));
    }

    void checkSlots() {
        arena_.forEachUsedSlot([this](SlotIndex i, const Slot& slot) {
            const LifeWord life = slot.life.loadRelaxed();
            if (life == LifeWord::neverUsed) return;  // its first user has not come to open it
            const Spid spid = spidOf(life);
            const bool isLife = life == openAs(spid) || life == closedAs(spid);
            if (!isLife || indexOf(spid) != i) broken(Subject{"slot", i}, "indexOf(life) = its own");
            if (!isOpen(life)) return;
            ++open_;
            const WakeWord wakeState = slot.wakeState.loadRelaxed();
            if (wakeState != wake_state::word(spid, wake_state::stateOf(wakeState))) {
                broken(Subject{"slot", i}, "wakeState and life are of one generation");
            }
            if ((slot.options.loadRelaxed() & ~knownOptions) != 0) {
                broken(Subject{"slot", i}, "options = those that there are");
            }
        });
        expectEqual(findings_, "header", "openEndpoints = open slots", header_.openEndpoints.loadRelaxed(), open_);
    }

    void checkQuarantine() {
        const uint32_t ended = usedSlots_ - open_;
        const uint32_t now = header_.quarantined.loadRelaxed();
        uint32_t listed = 0;
        SlotIndex last = SlotIndex::none;
        uint32_t ageBefore = ~0u;
        for (SlotIndex i = header_.quarantineHead.loadRelaxed(); i != SlotIndex::none && listed <= ended; ++listed) {
            if (!isUsedSlot(i) || isOpenSlot(i)) {
                return broken("quarantine", "its slots have been used and are not open", Subject{"slot", i}.text());
            }
            const uint32_t age = now - arena_.slot(i).quarantineStamp.loadRelaxed();
            if (age > ageBefore) broken(Subject{"slot", i}, "the quarantine is in the order of its stamps");
            ageBefore = age;
            last = i;
            i = arena_.slot(i).nextInQuarantine.loadRelaxed();
        }
        expectEqual(findings_, "quarantine", "slots in it = used slots that are not open", listed, ended);
        expectEqual(findings_, "header", "quarantineTail = last in quarantine", header_.quarantineTail.loadRelaxed(),
                    last);
    }

    void checkNames() {
        uint32_t listed = 0;
        for (uint32_t bucket = 0; bucket < slotCount; ++bucket) {
            for (SlotIndex i = arena_.bucket(bucket).loadRelaxed(); i != SlotIndex::none && listed <= open_;
                 ++listed) {
                if (!isUsedSlot(i) || !isOpenSlot(i)) {
                    return broken(Subject{"bucket", bucket}, "its slots are open", Subject{"slot", i}.text());
                }
                if (arena_.slot(i).nameHash.loadRelaxed() % slotCount != bucket) {
                    broken(Subject{"slot", i}, "its bucket is that of nameHash");
                }
                i = arena_.slot(i).nextInBucket.loadRelaxed();
            }
        }
        expectEqual(findings_, "name table", "slots in it = open slots", listed, open_);
    }

    void checkHunts() {
        forEachHunt(arena_, [&](const Hunt& hunt) {
            const HunterWord word = hunt.hunter.loadRelaxed();
            const Spid hunter = spidOf(word);
            const auto index = static_cast<uint32_t>(&hunt - &arena_.hunt(0));
            if (word != huntedBy(hunter) || !isOpen(arena_, hunter))
                broken(Subject{"hunt", index}, "its hunter is open");
            const BlockRef signal = arena_.blockAt(hunt.signal.loadRelaxed());
            if (!signal || signal->owner.loadRelaxed() != queuedFor(hunter)) {
                broken(Subject{"hunt", index}, "its signal is queued for its hunter");
            }
        });
        const uint32_t used = arena_.usedHunts();
        if (used != 0 && arena_.hunt(used - 1).hunter.loadRelaxed() == HunterWord::none) {
            broken(Subject{"hunt", used - 1}, "the last of huntsUsed is in use");
        }
    }

    static constexpr const char* ofOneRun = "it is free, or of one run that is whole";

    const Arena& arena_;
    const Header& header_;
    Findings& findings_;
    const uint32_t usedSlots_;
    uint32_t open_ = 0;
};

}  // namespace

void checkGuarded(const Arena& arena, Findings& findings) {
    Guarded(arena, findings).check();
}

}  // namespace debug
}  // namespace linx
