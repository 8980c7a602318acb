#ifndef LINXIPC_HOST_ARENA_COMMON_STACKS_H
#define LINXIPC_HOST_ARENA_COMMON_STACKS_H

#include "host/arena/runs.h"

namespace linx {

/// The free blocks that have no home, a stack for each size class. Which blocks belong there stands in the blocks (no
/// owner, no home); the stacks only make them quick to find and can be made anew from that. Under the domain lock.
namespace common {

inline bool isCommon(const Block& block) {
    // Acquire: (E), pairs with the release of whoever freed the block; its home is as new as its owner.
    return block.owner.loadAcquire() == ownerFree && block.home.loadRelaxed() == noHome;
}

/// Marks a block that nobody else may touch as free and without a home.
inline void disown(Block& block) {
    block.home.storeRelaxed(noHome);
    // Release: (E). Dying before this store leaves the block to its owner's next reaper.
    block.owner.storeRelease(ownerFree);
}

/// The same for a block that was left behind or not come for; it also comes off the books of its home.
void orphan(const Arena& arena, Block& block, uint32_t sizeClass);

/// Pushes a disowned block.
void push(const Arena& arena, Block& block, Ref ref, uint32_t sizeClass);

/// Takes a block, whose reference goes to `ref`; null when there is none.
Block* take(const Arena& arena, uint32_t sizeClass, Ref& ref);

/// Forgets what is in the stacks; the blocks stay common.
void clear(const Arena& arena);

/// Makes all stacks anew.
void rebuild(const Arena& arena);

}  // namespace common
}  // namespace linx

#endif
