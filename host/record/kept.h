#ifndef LINXIPC_HOST_RECORD_KEPT_H
#define LINXIPC_HOST_RECORD_KEPT_H

#include "host/arena/layout.h"

namespace linx {

/*
 * What a signal tells, for those who look into the domain, while its owner keeps it as a notice or a time-out: the
 * words on which operations depend say queued, before it comes about as well as after. Its owner takes that back when
 * it comes about or is cancelled, but not when it ends; so it holds only where the owner is still the keeper.
 */

/// When a notice is due: when its sender ends.
constexpr uint32_t onItsSendersEnd = 0;

/// When a time-out is, in hundredths of seconds of the monotonic clock. They go round in 497 days, ten times as long
/// as a time-out may be.
constexpr uint64_t nanosecondsPerDueStep = 10000000;
constexpr uint32_t dueAt(uint64_t nanoseconds) {
    const auto steps = static_cast<uint32_t>(nanoseconds / nanosecondsPerDueStep);
    return steps == onItsSendersEnd ? steps + 1 : steps;
}

inline void tellKept(Block& block, Spid keeper, uint32_t due) {
    block.due.storeRelaxed(due);
    block.keptBy.storeRelaxed(keeper);
}

inline void tellNotKept(Block& block) {
    block.keptBy.storeRelaxed(Spid::none);
}

/// Whether the endpoint keeps it.
inline bool isKept(const Block& block, Spid keeper) {
    return block.owner.loadRelaxed() == queuedFor(keeper) && block.keptBy.loadRelaxed() == keeper;
}

}  // namespace linx

#endif
