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

/// Reclaims idle memory for a block of `lines` lines: reaps dead endpoints, and turns runs whose blocks are all in
/// the central lists into free pages, for any class. It is slow, as it checks whether every endpoint lives and scans
/// the whole arena, so its rate is bounded for all (see throttle.h). It is done sooner only if enough has come to the
/// central lists since the last time; once after others were asked for memory, `lines` is enough.
Reclaimed reclaim(const DomainLock& lock, Lines lines);

/// Lines that have come to the central lists since memory was last reclaimed and were not taken. Needs no lock.
uint32_t relief(const Arena& arena);

/// The most free lines that one endpoint keeps for itself: the fewer, the more of them are open. All together keep no
/// more than a part of the arena, so that there is something left for a newcomer.
uint32_t keptBy(const Arena& arena);

}  // namespace lease
}  // namespace linx

#endif
