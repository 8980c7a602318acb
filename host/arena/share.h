#ifndef LINXIPC_HOST_ARENA_SHARE_H
#define LINXIPC_HOST_ARENA_SHARE_H

#include <algorithm>

#include "host/arena/arena.h"

namespace linx {

/*
 * An endpoint's share of the pool: how many lines it is home to, as the slot counts them. Books, which publish
 * nothing: all of it is relaxed.
 *
 * Others subtract the blocks that they make their own, perhaps only when the slot is another endpoint's. So the word
 * carries the lowest bits of the generation above the lines, and a process that finds other bits leaves it alone.
 * They would deceive only a process that is delayed between load and compare-and-swap while the slot is reused a
 * multiple of eight times and returns to the very same count. No count falls below 0.
 */
namespace share {

constexpr uint32_t lineMask = (1u << refBits) - 1;

constexpr uint32_t tagOf(Spid spid) {
    return generationOf(spid) << refBits;
}

/// The most lines of the pool that one endpoint may be home to.
inline uint32_t limitOf(const Arena& arena) {
    constexpr uint32_t smallest = 2 * sizeClasses[largestClass].pages * linesPerPage;
    return std::max(smallest, arena.pageCount() / 4 * linesPerPage);
}

/// The slot is `spid`'s from now on, home to nothing.
inline void begin(Slot& slot, Spid spid) {
    slot.leasedLines.storeRelaxed(tagOf(spid));
}

inline Lines linesOf(const Slot& slot) {
    return Lines{slot.leasedLines.loadRelaxed() & lineMask};
}

/// To be called by the endpoint itself.
inline void add(Slot& slot, Lines lines) {
    slot.leasedLines.addRelaxed(lines);
}

/// Takes lines off the books of `home`, whose slot it is or was.
inline void remove(Slot& slot, Spid home, Lines lines) {
    uint32_t found = slot.leasedLines.loadRelaxed();
    uint32_t left;
    do {
        if ((found & ~lineMask) != tagOf(home)) return;
        const uint32_t counted = found & lineMask;
        left = tagOf(home) | (counted > lines ? counted - lines : 0);
    } while (!slot.leasedLines.casSeqCst(found, left));
}

}  // namespace share
}  // namespace linx

#endif
