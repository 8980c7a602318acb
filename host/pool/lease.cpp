#include "host/pool/lease.h"

#include <algorithm>

#include "host/arena/clock.h"
#include "host/arena/common_stacks.h"
#include "host/arena/share.h"
#include "host/recovery/retire.h"

namespace linx {
namespace lease {
namespace {

constexpr uint32_t none = ~0u;

constexpr uint32_t shortestPause = 10;   ///< milliseconds
constexpr uint32_t longestTime = 10000;  ///< milliseconds: no honest one takes longer
constexpr uint32_t pauseFactor = 8;      ///< a pause is so many times as long as what was done before it

/// The first of `count` adjoining units that were leased once and are free again.
uint32_t findGap(const Arena& arena, uint32_t count) {
    const uint32_t used = arena.usedUnits();
    uint32_t length = 0;
    for (uint32_t unit = 0; unit < used; ++unit) {
        length = arena.unit(unit).loadRelaxed() == 0 ? length + 1 : 0;
        if (length == count) return unit + 1 - count;
    }
    return none;
}

/// The first of `count` free units with memory; `none` when there are none.
uint32_t takeUnits(const Arena& arena, uint32_t count) {
    const uint32_t used = arena.usedUnits();
    if (arena.unitCount() - used >= count && arena.provideUnit(used + count - 1)) {
        arena.header().unitsUsed.storeRelaxed(used + count);
        return used;
    }
    return findGap(arena, count);  // what was leased before has its memory also where the file system is full
}

// Under the cold lock, and relaxed where no order is told: handed over with it (P).

/// Puts a block that is free and at home in front.
void prepend(Chain& chain, Block& block, Ref ref) {
    block.next.storeRelaxed(chain.head);
    if (chain.empty()) chain.last = &block;
    chain.head = ref;
    ++chain.blocks;
}

void cutRun(const Arena& arena, uint32_t firstUnit, uint32_t sizeClass, Spid home, Chain& chain) {
    const SizeClass& c = sizeClasses[sizeClass];
    const Ref start = arena.refOfUnit(firstUnit);
    // Free blocks of `home` before they are blocks at all: should the process die from here on, its reaper finds
    // them.
    for (uint32_t i = c.blocks; i-- > 0;) {
        const Ref ref = start + i * c.lines;
        Block& block = *arena.rawBlock(ref);
        prepend(chain, block, ref);
        block.home.storeRelaxed(home);
        block.sender.storeRelaxed(0);
        block.owner.storeRelease(ownerFree);
    }
    // The first entry last, since it makes the run. Release: (O), whoever sees an entry sees the blocks initialised.
    for (uint32_t back = c.units; back-- > 0;) arena.unit(firstUnit + back).storeRelease(unitEntry(sizeClass, back));
}

void giveUpRun(const Arena& arena, uint32_t unit, uint32_t sizeClass) {
    // Release: none before the first, which unmakes the run.
    for (uint32_t i = 0; i < sizeClasses[sizeClass].units; ++i) arena.unit(unit + i).storeRelease(0);
}

/// Makes the runs free units again that nobody has a block of, and the common stacks anew from the others.
void compact(const Arena& arena) {
    common::clear(arena);  // the stacks may name blocks of runs that are given up now
    forEachRun(arena, [&](uint32_t unit, uint32_t sizeClass) {
        bool idle = true;
        forEachBlockOfRun(arena, unit, sizeClass, [&](Block& block, Ref) { idle = idle && common::isCommon(block); });
        if (idle) giveUpRun(arena, unit, sizeClass);
    });
    common::rebuild(arena);
}

uint32_t milliseconds() {
    return static_cast<uint32_t>(coarseMilliseconds());
}

}  // namespace

Chain fromCommon(const ColdSection& cold, Spid home, uint32_t sizeClass, uint32_t wanted) {
    const Arena& arena = cold.arena();
    Chain chain;
    while (chain.blocks < wanted) {
        Ref ref;
        Block* block = common::take(arena, sizeClass, ref);
        if (block == nullptr) break;
        block->home.storeRelaxed(home);  // relaxed: whoever reads homes of free blocks has the lock (P)
        prepend(chain, *block, ref);
    }
    share::add(arena.slot(indexOf(home)), chain.blocks * sizeClasses[sizeClass].lines);
    return chain;
}

Chain fromUnits(const ColdSection& cold, Spid home, uint32_t sizeClass, uint32_t wanted) {
    const Arena& arena = cold.arena();
    const SizeClass& c = sizeClasses[sizeClass];
    uint32_t runs = std::max(1u, wanted / c.blocks);
    uint32_t first = takeUnits(arena, runs * c.units);
    if (first == none && runs > 1) {
        runs = 1;
        first = takeUnits(arena, c.units);
    }
    Chain chain;
    if (first == none) return chain;
    for (uint32_t run = runs; run-- > 0;) cutRun(arena, first + run * c.units, sizeClass, home, chain);
    share::add(arena.slot(indexOf(home)), chain.blocks * c.lines);
    return chain;
}

bool reclaim(const ColdSection& cold, uint32_t lines) {
    const Arena& arena = cold.arena();
    Header& header = arena.header();
    const uint32_t start = milliseconds();
    const uint32_t passed = start - header.reclaimedAt.loadRelaxed();
    const uint32_t took = std::min(header.reclaimTook.loadRelaxed(), longestTime);  // or it is garbage
    const bool isDue = passed >= std::max(pauseFactor * took, shortestPause);
    const uint32_t grown = header.commonLines.loadRelaxed() - header.commonThen.loadRelaxed();
    const uint32_t used = arena.usedUnits() * linesPerUnit;
    const bool isWorthwhile = grown >= std::max(lines, used / 64) && grown <= used;
    if (!isDue && !isWorthwhile) return false;
    if (isDue) reapAllDead(cold);
    compact(arena);
    const uint32_t end = milliseconds();
    header.reclaimedAt.storeRelaxed(end);
    header.reclaimTook.storeRelaxed(end - start);
    header.commonThen.storeRelaxed(header.commonLines.loadRelaxed());
    return true;
}

uint32_t shareOf(const Arena& arena) {
    constexpr uint32_t smallest = 2 * sizeClasses[sizeClassCount - 1].units * linesPerUnit;
    return std::max(smallest, arena.unitCount() / 4 * linesPerUnit);
}

uint32_t keptBy(const Arena& arena) {
    constexpr uint32_t plenty = (64u << 10) / lineBytes;
    const uint32_t lines = arena.unitCount() * linesPerUnit;
    const uint32_t open = std::clamp(arena.header().openEndpoints.loadRelaxed(), 1u, slotCount);
    return std::min(std::max(lines / 256, plenty), lines / 8 / open);
}

}  // namespace lease
}  // namespace linx
