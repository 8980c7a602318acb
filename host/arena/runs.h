#ifndef LINXIPC_HOST_ARENA_RUNS_H
#define LINXIPC_HOST_ARENA_RUNS_H

#include "host/arena/arena.h"

namespace linx {

/// Whether a run starts at the page; its class goes to `sizeClass`. Under the domain lock.
inline bool runStartsAt(const Arena& arena, PageIndex page, SizeClassId& sizeClass) {
    const uint32_t entry = arena.pageEntry(page).loadRelaxed();
    sizeClass = entryClass(entry);
    return sizeClass < sizeClassCount && entryBack(entry) == 0 &&
           page + sizeClasses[sizeClass].pages <= arena.usedPages();
}

/// Pages become free again, or may have: whatever is known of the gaps between runs is out of date. Under
/// the domain lock.
inline void forgetGaps(const Arena& arena) {
    arena.header().longestGap.storeRelaxed(arena.pageCount());
}

/// Calls `visit(firstPage, sizeClass)` for every run. Under the domain lock.
template <class Visit>
void forEachRun(const Arena& arena, Visit visit) {
    const uint32_t used = arena.usedPages();
    for (PageIndex page{}; page < used;) {
        SizeClassId sizeClass;
        const bool isRun = runStartsAt(arena, page, sizeClass);
        if (isRun) visit(page, sizeClass);
        page = PageIndex{page + (isRun ? sizeClasses[sizeClass].pages : 1)};
    }
}

/// Calls `visit(block)` for every block of the run.
template <class Visit>
void forEachBlockOfRun(const Arena& arena, PageIndex firstPage, SizeClassId sizeClass, Visit visit) {
    const SizeClass& c = sizeClasses[sizeClass];
    for (uint32_t i = 0; i < c.blocks; ++i) {
        const BlockRef block = arena.blockAt(arena.refOfPage(firstPage) + i * c.lines);
        if (block) visit(block);
    }
}

/// Calls `visit(block)` for every block of the arena. Under the domain lock; blocks change their
/// owners meanwhile, so `visit` may rely only on what nobody but the caller can change.
template <class Visit>
void forEachBlock(const Arena& arena, Visit visit) {
    forEachRun(arena,
               [&](PageIndex page, SizeClassId sizeClass) { forEachBlockOfRun(arena, page, sizeClass, visit); });
}

}  // namespace linx

#endif
