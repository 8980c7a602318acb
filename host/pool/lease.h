#ifndef LINXIPC_HOST_POOL_LEASE_H
#define LINXIPC_HOST_POOL_LEASE_H

#include "host/recovery/cold_section.h"

namespace linx {

/// Under the cold lock: makes free blocks an endpoint's own.
namespace lease {

/// Free blocks of one class and one home, linked through `next`.
struct Chain {
    Ref head = 0;
    Block* last = nullptr;
    uint32_t blocks = 0;

    bool empty() const { return blocks == 0; }
};

/// Takes up to `wanted` common blocks of the class for `home`.
Chain fromCommon(const ColdSection& cold, Spid home, uint32_t sizeClass, uint32_t wanted);

/// Cuts runs of fresh units into blocks for `home`, about `wanted` of them and at least one run. None when there are no
/// units or no memory.
Chain fromUnits(const ColdSection& cold, Spid home, uint32_t sizeClass, uint32_t wanted);

/// Whether memory may be reclaimed now. All endpoints together do so for a ninth of the time at most, however many
/// find the arena full however often: it holds up whoever else needs the lock.
bool isReclaimDue(const Arena& arena);

/// Gathers what lies idle, when an endpoint finds the arena full: the blocks of dead endpoints, and what `compact` finds.
/// It takes long: all of the arena is looked through, and every endpoint asked whether it lives.
void reclaim(const ColdSection& cold);

/// Makes runs of which every block is common free units again, for any class.
void compact(const ColdSection& cold);

/// The most lines of the pool that one endpoint may be home to.
uint32_t shareOf(const Arena& arena);

/// The most free lines that one endpoint keeps for itself: the fewer, the more of them are open. All together keep no
/// more than a part of the arena, so that there is something left for a newcomer.
uint32_t keptBy(const Arena& arena);

}  // namespace lease
}  // namespace linx

#endif
