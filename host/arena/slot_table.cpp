#include "host/arena/slot_table.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

namespace linx {

// All under the domain lock: relaxed, handed over with it [lock]. Only slotsUsed is read without, see wasUsed.

SlotIndex takeSlot(const Arena& arena) {
    Header& header = arena.header();
    const SlotIndex fresh{arena.usedSlots() + 1};  // slot 0 stays unused
    const bool isLeft = numberOf(fresh) < slotCount;
    if (isLeft && arena.provideSlot(fresh)) {
        header.slotsUsed.storeRelaxed(numberOf(fresh));
        return fresh;
    }
    const SlotIndex oldest = header.quarantineHead.loadRelaxed();
    if (oldest == SlotIndex::none || oldest >= fresh) {
        errno = isLeft ? ENOMEM : ENOSPC;
        return SlotIndex::none;
    }
    const SlotIndex next = arena.slot(oldest).nextInQuarantine.loadRelaxed();
    header.quarantineHead.storeRelaxed(next);
    if (next == SlotIndex::none) header.quarantineTail.storeRelaxed(SlotIndex::none);
    return oldest;
}

void quarantine(const Arena& arena, SlotIndex index) {
    Header& header = arena.header();
    Slot& slot = arena.slot(index);
    const uint32_t stamp = header.quarantined.loadRelaxed() + 1;
    header.quarantined.storeRelaxed(stamp);
    slot.quarantineStamp.storeRelaxed(stamp);
    slot.nextInQuarantine.storeRelaxed(SlotIndex::none);
    const SlotIndex newest = header.quarantineTail.loadRelaxed();
    if (newest == SlotIndex::none || numberOf(newest) > arena.usedSlots()) {
        header.quarantineHead.storeRelaxed(index);
    } else {
        arena.slot(newest).nextInQuarantine.storeRelaxed(index);
    }
    header.quarantineTail.storeRelaxed(index);
}

void rebuildQuarantine(const Arena& arena) {
    Header& header = arena.header();
    const uint32_t now = header.quarantined.loadRelaxed();
    struct Ended {
        SlotIndex index;
        uint32_t age;  // not the stamp, as stamps wrap. Read once: keys must not change while they are sorted.
    };
    const std::unique_ptr<Ended[]> all(new (std::nothrow) Ended[slotCount]);
    Ended* last = all.get();
    SlotIndex previous = SlotIndex::none;
    const auto append = [&](const Ended& ended) {
        (previous == SlotIndex::none ? header.quarantineHead : arena.slot(previous).nextInQuarantine)
            .storeRelaxed(ended.index);
        previous = ended.index;
    };
    arena.forEachUsedSlot([&](SlotIndex index, const Slot& slot) {
        if (isOpen(slot.life.loadRelaxed())) return;
        const Ended ended = {index, now - slot.quarantineStamp.loadRelaxed()};
        if (all != nullptr) {
            *last++ = ended;
        } else {
            append(ended);  // without memory any order will do, rather than none
        }
    });
    std::stable_sort(all.get(), last, [](const Ended& a, const Ended& b) { return a.age > b.age; });
    std::for_each(all.get(), last, append);
    if (previous == SlotIndex::none) {
        header.quarantineHead.storeRelaxed(SlotIndex::none);
    } else {
        arena.slot(previous).nextInQuarantine.storeRelaxed(SlotIndex::none);
    }
    header.quarantineTail.storeRelaxed(previous);
}

void recountOpen(const Arena& arena) {
    uint32_t open = 0;
    arena.forEachUsedSlot([&](SlotIndex, const Slot& slot) { open += isOpen(slot.life.loadRelaxed()) ? 1 : 0; });
    arena.header().openEndpoints.storeRelaxed(open);
}

}  // namespace linx
