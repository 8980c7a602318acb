#include "host/pool/lease.h"

#include "host/arena/arena_file.h"
#include "host/arena/clock.h"
#include "host/arena/common_stacks.h"
#include "host/mailbox/announced_stack.h"
#include "host/recovery/retire.h"

namespace linx {
namespace lease {
namespace {

constexpr uint32_t none = ~0u;
constexpr uint64_t shortestPause = 10;  ///< milliseconds between reclaims that nothing calls for
constexpr uint64_t pauseFactor = 8;     ///< and at least so many times as long as one takes

/// The first of `count` adjoining units that were leased once and are free again.
uint32_t findGap(const Arena& arena, uint32_t count) {
    const uint32_t used = unitsUsed(arena);
    uint32_t length = 0;
    for (uint32_t unit = 0; unit < used; ++unit) {
        length = arena.unit(unit).loadRelaxed() == 0 ? length + 1 : 0;
        if (length == count) return unit + 1 - count;
    }
    return none;
}

/// The first of `count` free units with memory; `none` when there are none.
uint32_t takeUnits(const ColdSection& cold, uint32_t count) {
    const Arena& arena = cold.arena();
    const uint32_t used = unitsUsed(arena);
    if (arena.unitCount() - used >= count && reservePages(cold.file(), arena.pageOfUnit(used), count)) {
        arena.header().unitsUsed.storeRelaxed(used + count);
        return used;
    }
    // What was leased before has its memory also where the file system is full.
    const uint32_t gap = findGap(arena, count);
    return gap != none && reservePages(cold.file(), arena.pageOfUnit(gap), count) ? gap : none;
}

// Under the cold lock, and relaxed where no order is told: handed over with it (P).

void initialise(Block& block, Spid home) {
    block.next.storeRelaxed(0);
    block.home.storeRelaxed(home);
    block.sender.storeRelaxed(0);
    block.owner.storeRelease(ownerFree);
}

void cutRun(const Arena& arena, uint32_t firstUnit, uint32_t sizeClass, Spid home, std::vector<Ref>& blocks) {
    const SizeClass& c = sizeClasses[sizeClass];
    const Ref start = arena.refOfUnit(firstUnit);
    // Free blocks of `home` before they are blocks at all: should the process die from here on, its reaper finds
    // them.
    for (uint32_t i = 0; i < c.blocks; ++i) initialise(*arena.rawBlock(start + i * c.lines), home);
    // The first entry last, since it makes the run. Release: (O), whoever sees an entry sees the blocks initialised.
    for (uint32_t back = c.units; back-- > 0;) arena.unit(firstUnit + back).storeRelease(unitEntry(sizeClass, back));
    for (uint32_t i = 0; i < c.blocks; ++i) blocks.push_back(start + i * c.lines);
}

/// Gathers a live endpoint's returned blocks that it has not come for.
void steal(const Arena& arena, Slot& slot) {
    Word& stealing = arena.header().stealing;
    const Ref chain = stack::take(slot.returned, stealing, stack::empty);
    stack::walk(arena, chain,
                [&](Block& block, Ref, uint32_t sizeClass) { common::orphan(arena, block, sizeClass); });
    stealing.storeRelease(0);  // after the last block is nobody's, as one who dies needs it
}

template <class Visit>
void forEachOpenSlot(const Arena& arena, Visit visit) {
    const uint32_t used = std::min(arena.header().slotsUsed.loadRelaxed(), slotCount - 1);
    for (uint32_t i = 1; i <= used; ++i) {
        Slot& slot = arena.slot(i);
        if ((slot.life.loadAcquire() & lifeOpen) != 0) visit(slot);
    }
}

/// A number that changes when an endpoint ends, and most likely when a block becomes common.
uint32_t stateOf(const Arena& arena) {
    uint32_t state = arena.header().endings.loadRelaxed();
    for (const Word& head : arena.header().common) state = state * 16777619u + head.loadRelaxed();
    return state;
}

bool isAllCommon(const Arena& arena, uint32_t unit, uint32_t sizeClass) {
    bool all = true;
    forEachBlockOfRun(arena, unit, sizeClass, [&](Block& block, Ref) { all = all && common::isCommon(block); });
    return all;
}

void giveUpRun(const Arena& arena, uint32_t unit, uint32_t sizeClass) {
    // Release: none before the first, which unmakes the run.
    for (uint32_t i = 0; i < sizeClasses[sizeClass].units; ++i) arena.unit(unit + i).storeRelease(0);
}

}  // namespace

void fromCommon(const ColdSection& cold, Spid home, uint32_t sizeClass, uint32_t wanted, std::vector<Ref>& blocks) {
    const Arena& arena = cold.arena();
    blocks.reserve(blocks.size() + wanted);
    uint32_t taken = 0;
    for (; taken < wanted; ++taken) {
        Ref ref;
        Block* block = common::take(arena, sizeClass, ref);
        if (block == nullptr) break;
        block->home.storeRelaxed(home);  // relaxed: whoever reads homes of free blocks has the lock (P)
        blocks.push_back(ref);
    }
    arena.slot(indexOf(home)).leasedLines.addRelaxed(taken * sizeClasses[sizeClass].lines);
}

void fromUnits(const ColdSection& cold, Spid home, uint32_t sizeClass, uint32_t wanted, std::vector<Ref>& blocks) {
    const Arena& arena = cold.arena();
    const SizeClass& c = sizeClasses[sizeClass];
    uint32_t runs = std::max(1u, wanted / c.blocks);
    blocks.reserve(blocks.size() + size_t{runs} * c.blocks);
    uint32_t first = takeUnits(cold, runs * c.units);
    if (first == none && runs > 1) {
        runs = 1;
        first = takeUnits(cold, c.units);
    }
    if (first == none) return;
    for (uint32_t run = 0; run < runs; ++run) cutRun(arena, first + run * c.units, sizeClass, home, blocks);
    arena.slot(indexOf(home)).leasedLines.addRelaxed(runs * c.blocks * c.lines);
}

void Reclaiming::reclaim(const ColdSection& cold) {
    const Arena& arena = cold.arena();
    const uint64_t start = coarseMilliseconds();
    reapAllDead(cold);
    forEachOpenSlot(arena, [&](Slot& slot) { steal(arena, slot); });
    // The stacks may name blocks of runs that are given up now; they are made anew afterwards.
    for (Word& head : arena.header().common) head.storeRelaxed(0);
    forEachRun(arena, [&](uint32_t unit, uint32_t sizeClass) {
        if (isAllCommon(arena, unit, sizeClass)) giveUpRun(arena, unit, sizeClass);
    });
    common::rebuild(arena);
    left_ = stateOf(arena);
    const uint64_t end = coarseMilliseconds();
    pointlessUntil_ = end + std::max<uint64_t>(shortestPause, pauseFactor * (end - start));
}

bool Reclaiming::isPointless(const ColdSection& cold) const {
    if (coarseMilliseconds() >= pointlessUntil_ || stateOf(cold.arena()) != left_) return false;
    bool anyReturned = false;
    forEachOpenSlot(cold.arena(), [&](const Slot& slot) {
        anyReturned = anyReturned || slot.returned.loadRelaxed() > stack::closed;  // relaxed: a reclaim takes it
    });
    return !anyReturned;
}

uint32_t shareOf(const Arena& arena) {
    constexpr uint32_t smallest = 2 * sizeClasses[sizeClassCount - 1].units * linesPerUnit;
    return std::max(smallest, arena.unitCount() / 4 * linesPerUnit);
}

}  // namespace lease
}  // namespace linx
