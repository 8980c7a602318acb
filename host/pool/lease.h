#ifndef LINXIPC_HOST_POOL_LEASE_H
#define LINXIPC_HOST_POOL_LEASE_H

#include <vector>

#include "host/recovery/cold_section.h"

namespace linx {

/// Under the cold lock: makes free blocks an endpoint's own.
namespace lease {

/// Takes up to `wanted` common blocks of the class for `home` and appends them.
void fromCommon(const ColdSection& cold, Spid home, uint32_t sizeClass, uint32_t wanted, std::vector<Ref>& blocks);

/// Cuts runs of fresh units into blocks for `home`, about `wanted` of them and at least one run, and appends them.
/// None when there are no units or no memory.
void fromUnits(const ColdSection& cold, Spid home, uint32_t sizeClass, uint32_t wanted, std::vector<Ref>& blocks);

/// Gathers what lies idle, when an endpoint finds the arena full. It takes long: all of the arena is looked through,
/// and every endpoint asked whether it lives.
class Reclaiming {
public:
    /// Gathers the blocks of dead endpoints, and those that wait in others' returned stacks. Runs of which every
    /// block is common become free units again, for any class.
    void reclaim(const ColdSection& cold);

    /// Whether it would bring no more than the last time: nobody has ended, nothing has been given back, and not so
    /// much time has passed that deaths should be looked for again.
    bool isPointless(const ColdSection& cold) const;

private:
    uint32_t left_ = 0;            ///< the state that the last one left
    uint64_t pointlessUntil_ = 0;  ///< coarse milliseconds
};

/// An endpoint's share: the most lines of the pool that it may be home to.
uint32_t shareOf(const Arena& arena);

}  // namespace lease
}  // namespace linx

#endif
