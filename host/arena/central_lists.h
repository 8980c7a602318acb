#ifndef LINXIPC_HOST_ARENA_CENTRAL_LISTS_H
#define LINXIPC_HOST_ARENA_CENTRAL_LISTS_H

#include "host/arena/runs.h"

namespace linx {

/// The central free lists: the blocks that nobody owns and no endpoint keeps for itself, a list for each size class.
/// The blocks themselves say whether they belong there (no owner, no home); the lists only speed up finding them and
/// can be rebuilt. Under the domain lock.
namespace central {

inline bool isHomeless(const Block& block) {
    // Acquire [owner]: pairs with the release of whoever freed the block; its home is as new as its owner.
    return block.owner.loadAcquire() == OwnerWord::free && block.home.loadRelaxed() == noHome;
}

/// Marks a block that nobody else may touch as free and without a home.
inline void disown(Block& block) {
    block.home.storeRelaxed(noHome);
    // Release [owner]. Dying before this store leaves the block to its owner's next reaper.
    block.owner.storeRelease(OwnerWord::free);
}

/// The same for a block left behind by its owner; also subtracts it from the share of its home.
void abandon(const Arena& arena, BlockRef block);

/// Pushes a disowned block.
void push(const Arena& arena, BlockRef block);

/// Pops a block of the class; none when there is none.
BlockRef pop(const Arena& arena, SizeClassId sizeClass);

/// Forgets what is in the lists; the blocks stay without a home.
void clear(const Arena& arena);

/// Makes all lists anew.
void rebuild(const Arena& arena);

}  // namespace central
}  // namespace linx

#endif
