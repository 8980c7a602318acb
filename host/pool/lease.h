#ifndef LINXIPC_HOST_POOL_LEASE_H
#define LINXIPC_HOST_POOL_LEASE_H

#include "host/recovery/domain_lock.h"

namespace linx {

/// Under the domain lock: makes free blocks an endpoint's own.
namespace lease {

/// Free blocks of one class and one home, linked through `next`.
struct Chain {
    Ref head = Ref::none;
    Block* last = nullptr;
    uint32_t blocks = 0;

    bool empty() const { return blocks == 0; }
};

/// Takes up to `wanted` blocks of the class out of the central lists for `home`.
Chain fromCentral(const DomainLock& lock, Spid home, SizeClassId sizeClass, uint32_t wanted);

/// Cuts runs of fresh pages into blocks for `home`, about `wanted` of them and at least one run. None when there are
/// no pages or no memory.
Chain fromFreshPages(const DomainLock& lock, Spid home, SizeClassId sizeClass, uint32_t wanted);

/// What has been looked at for idle memory.
enum class Reclaimed {
    nothing,
    some,       ///< blocks that others have given up
    everything  ///< those of dead endpoints too
};

/// Gathers what lies idle, when an endpoint has found no memory for a block of `lines` lines: the blocks of dead
/// endpoints; and runs of which every block is in the central lists become free pages again, for any class. It takes
/// long, since every endpoint is asked whether it lives, and all of the arena looked through. So how often it is done
/// is bounded for all (see throttle.h); sooner only when so much has come to the central lists since the last time
/// that the arena is worth another look, once when others have been asked for it.
Reclaimed reclaim(const DomainLock& lock, Lines lines);

/// Lines that have come to the central lists, and were not taken since, after memory was reclaimed last. Also without
/// the lock.
uint32_t relief(const Arena& arena);

/// The most free lines that one endpoint keeps for itself: the fewer, the more of them are open. All together keep no
/// more than a part of the arena, so that there is something left for a newcomer.
uint32_t keptBy(const Arena& arena);

}  // namespace lease
}  // namespace linx

#endif
