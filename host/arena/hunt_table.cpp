#include "host/arena/hunt_table.h"

#include <algorithm>
#include <cerrno>

#include "host/arena/arena_file.h"

namespace linx {
namespace {

/// The page that holds the last byte of the entry, counted from the start of the table.
uint32_t lastPageOf(uint32_t index) {
    return ((index + 1) * static_cast<uint32_t>(sizeof(Hunt)) - 1) / unitBytes;
}

bool huntHasMemory(const Arena& arena, int file, uint32_t index) {
    Word& reserved = arena.header().huntsReserved;
    const uint32_t have = reserved.loadRelaxed();
    const uint32_t need = lastPageOf(index) + 1;
    if (need <= have) return true;
    if (!reservePages(file, huntsOffset / unitBytes + have, need - have)) return false;
    reserved.storeRelaxed(need);
    return true;
}

uint32_t freeEntry(const Arena& arena) {
    const uint32_t used = std::min(arena.header().huntsUsed.loadRelaxed(), huntCount);
    for (uint32_t i = 0; i < used; ++i) {
        if (arena.hunt(i).hunter.loadRelaxed() == 0) return i;
    }
    return used;
}

}  // namespace

int addHunt(const Arena& arena, int file, Spid hunter, const Name& name, Ref signal) {
    const uint32_t index = freeEntry(arena);
    if (index == huntCount) return ENOSPC;
    if (!huntHasMemory(arena, file, index)) return ENOMEM;
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
    uint32_t count = std::min(used.loadRelaxed(), huntCount);
    while (count != 0 && arena.hunt(count - 1).hunter.loadRelaxed() == 0) --count;
    used.storeRelaxed(count);
}

}  // namespace linx
