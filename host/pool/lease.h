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

/// Gathers what lies idle: the blocks of dead endpoints, and those that wait in others' returned stacks. Runs of
/// which every block is common become free units again, for any class.
void reclaim(const ColdSection& cold);

/// An endpoint's share: the most lines of the pool that it may be home to.
uint32_t shareOf(const Arena& arena);

}  // namespace lease
}  // namespace linx

#endif
