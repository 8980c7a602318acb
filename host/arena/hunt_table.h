#ifndef LINXIPC_HOST_ARENA_HUNT_TABLE_H
#define LINXIPC_HOST_ARENA_HUNT_TABLE_H

#include "host/arena/name_table.h"

namespace linx {

/// The hunts that wait for their names. All of it needs the domain lock, which orders it [lock]; releases only keep
/// the order in which one who dies has written.

/// The most hunts that one endpoint may have pending.
constexpr uint32_t huntsOfOne = huntCount / 4;

/// Keeps a hunt of `hunter` for `name` with its signal, a block that is queued for the hunter. Returns 0, EDQUOT when
/// too many of the hunter's own are pending, ENOSPC when too many are of all, or ENOMEM when there is no memory.
int addHunt(const Arena& arena, Spid hunter, const Name& name, Ref signal);

inline void clearHunt(Hunt& hunt) {
    hunt.hunter.storeRelaxed(HunterWord::none);
}

/// Calls `visit(hunt)` for every hunt of a hunter that `visit` may clear.
template <class Visit>
void forEachHunt(const Arena& arena, Visit visit) {
    const uint32_t used = arena.usedHunts();
    for (uint32_t i = 0; i < used; ++i) {
        Hunt& hunt = arena.hunt(i);
        if (hunt.hunter.loadRelaxed() != HunterWord::none) visit(hunt);
    }
}

/// Lowers huntsUsed to the last entry in use, which keeps the walks above short.
void trimHunts(const Arena& arena);

}  // namespace linx

#endif
