#include "host/arena/slot_table.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

namespace linx {

// All under the domain lock: relaxed, handed over with it (P). Only slotsUsed is read without, see wasUsed.

uint32_t takeSlot(const Arena& arena) {
    Header& header = arena.header();
    const uint32_t fresh = arena.usedSlots() + 1;  // slot 0 stays unused
    if (fresh < slotCount && arena.provideSlot(fresh)) {
        header.slotsUsed.storeRelaxed(fresh);
        return fresh;
    }
    const uint32_t oldest = header.quarantineHead.loadRelaxed();
    if (oldest == 0 || oldest >= fresh) {
        errno = fresh < slotCount ? ENOMEM : ENOSPC;
        return 0;
    }
    const uint32_t next = arena.slot(oldest).nextInQuarantine.loadRelaxed();
    header.quarantineHead.storeRelaxed(next);
    if (next == 0) header.quarantineTail.storeRelaxed(0);
    return oldest;
}

void quarantine(const Arena& arena, uint32_t index) {
    Header& header = arena.header();
    Slot& slot = arena.slot(index);
    const uint32_t stamp = header.quarantined.loadRelaxed() + 1;
    header.quarantined.storeRelaxed(stamp);
    slot.quarantineStamp.storeRelaxed(stamp);
    slot.nextInQuarantine.storeRelaxed(0);
    const uint32_t newest = header.quarantineTail.loadRelaxed();
    if (newest == 0 || newest > arena.usedSlots()) {
        header.quarantineHead.storeRelaxed(index);
    } else {
        arena.slot(newest).nextInQuarantine.storeRelaxed(index);
    }
    header.quarantineTail.storeRelaxed(index);
}

void rebuildQuarantine(const Arena& arena) {
    Header& header = arena.header();
    const uint32_t used = arena.usedSlots();
    const uint32_t now = header.quarantined.loadRelaxed();
    struct Ended {
        uint32_t index;
        uint32_t age;  // and not the stamp: stamps wrap. Read once: an order that changes while it is sorted is none.
    };
    const std::unique_ptr<Ended[]> all(new (std::nothrow) Ended[slotCount]);
    Ended* last = all.get();
    uint32_t previous = 0;
    const auto append = [&](const Ended& ended) {
        (previous == 0 ? header.quarantineHead : arena.slot(previous).nextInQuarantine).storeRelaxed(ended.index);
        previous = ended.index;
    };
    for (uint32_t i = 1; i <= used; ++i) {
        const Slot& slot = arena.slot(i);
        if (isOpen(slot.life.loadRelaxed())) continue;
        const Ended ended = {i, now - slot.quarantineStamp.loadRelaxed()};
        if (all != nullptr) {
            *last++ = ended;
        } else {
            append(ended);  // without memory any order will do, rather than none
        }
    }
    std::stable_sort(all.get(), last, [](const Ended& a, const Ended& b) { return a.age > b.age; });
    std::for_each(all.get(), last, append);
    if (previous == 0) {
        header.quarantineHead.storeRelaxed(0);
    } else {
        arena.slot(previous).nextInQuarantine.storeRelaxed(0);
    }
    header.quarantineTail.storeRelaxed(previous);
}

void recountOpen(const Arena& arena) {
    const uint32_t used = arena.usedSlots();
    uint32_t open = 0;
    for (uint32_t i = 1; i <= used; ++i) open += isOpen(arena.slot(i).life.loadRelaxed()) ? 1 : 0;
    arena.header().openEndpoints.storeRelaxed(open);
}

}  // namespace linx
