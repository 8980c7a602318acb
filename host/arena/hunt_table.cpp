#include "host/arena/hunt_table.h"

#include <algorithm>
#include <cerrno>

namespace linx {
namespace {

/// The first free entry; `huntCount` when all are in use, or so many by `hunter` that others would go short.
uint32_t entryFor(const Arena& arena, Spid hunter) {
    const uint32_t used = arena.usedHunts();
    uint32_t free = used;
    uint32_t own = 0;
    for (uint32_t i = used; i-- > 0;) {
        const uint32_t word = arena.hunt(i).hunter.loadRelaxed();
        if (word == 0) free = i;
        if ((word & spidMask) == hunter) ++own;
    }
    return own < huntsOfOne ? free : huntCount;
}

}  // namespace

int addHunt(const Arena& arena, Spid hunter, const Name& name, Ref signal) {
    const uint32_t index = entryFor(arena, hunter);
    if (index == huntCount) return ENOSPC;
    if (!arena.provideHunt(index)) return ENOMEM;
    Hunt& hunt = arena.hunt(index);
    hunt.signal.storeRelaxed(signal);
    hunt.nameHash.storeRelaxed(name.hash());
    hunt.nameLength.storeRelaxed(name.length());
    name.writeTo(hunt.name);
    Word& used = arena.header().huntsUsed;
    // In this order, since an entry that was used before still holds what it held.
    hunt.hunter.storeRelease(hunter);
    used.storeRelaxed(std::max(used.loadRelaxed(), index + 1));
    return 0;
}

void trimHunts(const Arena& arena) {
    Word& used = arena.header().huntsUsed;
    uint32_t count = arena.usedHunts();
    while (count != 0 && arena.hunt(count - 1).hunter.loadRelaxed() == 0) --count;
    used.storeRelaxed(count);
}

}  // namespace linx
