#ifndef LINXIPC_HOST_ARENA_RUNS_H
#define LINXIPC_HOST_ARENA_RUNS_H

#include "host/arena/arena.h"

namespace linx {

/// Whether a run starts at the unit; its class goes to `sizeClass`.
inline bool runStartsAt(const Arena& arena, uint32_t unit, uint32_t& sizeClass) {
    const uint32_t entry = arena.unit(unit).loadAcquire();  // (O), though the domain lock would do
    sizeClass = entryClass(entry);
    return sizeClass < sizeClassCount && entryBack(entry) == 0 &&
           unit + sizeClasses[sizeClass].units <= arena.usedUnits();
}

/// Units become free again, or may have: whatever is known of the gaps between runs is out of date. Under
/// the domain lock.
inline void forgetGaps(const Arena& arena) {
    arena.header().longestGap.storeRelaxed(arena.unitCount());
}

/// Calls `visit(firstUnit, sizeClass)` for every run. Under the domain lock.
template <class Visit>
void forEachRun(const Arena& arena, Visit visit) {
    const uint32_t used = arena.usedUnits();
    for (uint32_t unit = 0; unit < used;) {
        uint32_t sizeClass;
        if (runStartsAt(arena, unit, sizeClass)) {
            visit(unit, sizeClass);
            unit += sizeClasses[sizeClass].units;
        } else {
            ++unit;
        }
    }
}

/// Calls `visit(block, ref)` for every block of the run.
template <class Visit>
void forEachBlockOfRun(const Arena& arena, uint32_t firstUnit, uint32_t sizeClass, Visit visit) {
    const SizeClass& c = sizeClasses[sizeClass];
    for (uint32_t i = 0; i < c.blocks; ++i) {
        const Ref ref = arena.refOfUnit(firstUnit) + i * c.lines;
        Block* block = arena.blockAt(ref);
        if (block != nullptr) visit(*block, ref);
    }
}

/// Calls `visit(block, ref, sizeClass)` for every block of the arena. Under the domain lock; blocks change their
/// owners meanwhile, so `visit` may rely only on what nobody but the caller can change.
template <class Visit>
void forEachBlock(const Arena& arena, Visit visit) {
    forEachRun(arena, [&](uint32_t unit, uint32_t sizeClass) {
        forEachBlockOfRun(arena, unit, sizeClass, [&](Block& block, Ref ref) { visit(block, ref, sizeClass); });
    });
}

}  // namespace linx

#endif
