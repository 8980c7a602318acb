#include "host/arena/hunt_table.h"

#include <algorithm>
#include <cerrno>

namespace linx {
namespace {

/// Finds the first free entry. 0, or an errno value as of addHunt.
int findEntry(const Arena& arena, Spid hunter, uint32_t& free) {
    const uint32_t used = arena.usedHunts();
    uint32_t own = 0;
    free = used;
    for (uint32_t i = used; i-- > 0;) {
        const HunterWord word = arena.hunt(i).hunter.loadRelaxed();
        if (word == HunterWord::none) free = i;
        if (spidOf(word) == hunter) ++own;
    }
    if (own >= huntsOfOne) return EDQUOT;
    return free == huntCount ? ENOSPC : 0;
}

}  // namespace

int addHunt(const Arena& arena, Spid hunter, const Name& name, Ref signal) {
    uint32_t index;
    if (const int failure = findEntry(arena, hunter, index)) return failure;
    if (!arena.provideHunt(index)) return ENOMEM;
    Hunt& hunt = arena.hunt(index);
    hunt.signal.storeRelaxed(signal);
    hunt.nameHash.storeRelaxed(name.hash());
    hunt.nameLength.storeRelaxed(name.length());
    name.writeTo(hunt.name);
    Word& used = arena.header().huntsUsed;
    // In this order, since an entry that was used before still holds what it held.
    hunt.hunter.storeRelease(huntedBy(hunter));
    used.storeRelaxed(std::max(used.loadRelaxed(), index + 1));
    return 0;
}

void trimHunts(const Arena& arena) {
    Word& used = arena.header().huntsUsed;
    uint32_t count = arena.usedHunts();
    while (count != 0 && arena.hunt(count - 1).hunter.loadRelaxed() == HunterWord::none) --count;
    used.storeRelaxed(count);
}

}  // namespace linx
