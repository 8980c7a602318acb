#include "host/pool/lease.h"

#include <algorithm>

#include "host/arena/central_lists.h"
#include "host/arena/share.h"
#include "host/arena/throttle.h"
#include "host/recovery/retire.h"

namespace linx {
namespace lease {
namespace {

constexpr PageIndex none{~0u};

/// Looks for gaps, where pages were leased once and are free again.
class GapSearch {
public:
    GapSearch(const Arena& arena, uint32_t wanted) : arena_(arena), wanted_(wanted) {}

    /// Whether `wanted` pages adjoin there; `end()` is then behind them.
    bool lookInto(uint32_t first, uint32_t last) {
        uint32_t length = 0;
        for (uint32_t page = first; page < last; ++page) {
            length = arena_.pageEntry(PageIndex{page}).loadRelaxed() == 0 ? length + 1 : 0;
            longest_ = std::max(longest_, length);
            end_ = page + 1;
            if (length == wanted_) return true;
        }
        return false;
    }

    uint32_t end() const { return end_; }
    uint32_t longest() const { return longest_; }

private:
    const Arena& arena_;
    const uint32_t wanted_;
    uint32_t end_ = 0;
    uint32_t longest_ = 0;
};

/// The first of `count` adjoining pages that were leased once and are free again. The search resumes where the last
/// one ended and is skipped if known to be futile: otherwise every lease would scan the whole arena.
PageIndex findGap(const Arena& arena, uint32_t count) {
    Header& header = arena.header();
    if (count > header.longestGap.loadRelaxed()) return none;
    const uint32_t used = arena.usedPages();
    const uint32_t hint = std::min(header.gapHint.loadRelaxed(), used);
    GapSearch search(arena, count);
    if (!search.lookInto(hint, used) && !search.lookInto(0, std::min(used, hint + count - 1))) {
        header.longestGap.storeRelaxed(search.longest());
        return none;
    }
    header.gapHint.storeRelaxed(search.end());
    return PageIndex{search.end() - count};
}

/// The first of `count` free pages with memory; `none` when there are none.
PageIndex takePages(const Arena& arena, uint32_t count) {
    const uint32_t used = arena.usedPages();
    if (arena.pageCount() - used >= count && arena.providePage(PageIndex{used + count - 1})) {
        arena.header().pagesUsed.storeRelaxed(used + count);
        return PageIndex{used};
    }
    return findGap(arena, count);  // pages leased before have memory even if the file system is full
}

// Under the domain lock: relaxed unless noted, as the lock orders it [lock].

/// Puts a block that is free and at home in front.
void prepend(Chain& chain, BlockRef block) {
    block->next.storeRelaxed(chain.head);
    if (chain.empty()) chain.last = block.block;
    chain.head = block.ref;
    ++chain.blocks;
}

void carveRun(const Arena& arena, PageIndex firstPage, SizeClassId sizeClass, Spid home, Chain& chain) {
    const SizeClass& c = sizeClasses[sizeClass];
    const Ref start = arena.refOfPage(firstPage);
    // Free blocks of `home` before they are blocks at all: should the process die from here on, its reaper finds
    // them.
    for (uint32_t i = c.blocks; i-- > 0;) {
        const Ref ref = start + i * c.lines;
        const BlockRef block = {arena.rawBlock(ref), ref, sizeClass};
        prepend(chain, block);
        block->home.storeRelaxed(home);
        block->sender.storeRelaxed(Spid::none);
        block->owner.storeRelease(OwnerWord::free);
    }
    // The first entry last, since it makes the run. Release [page entry]: whoever sees an entry sees the blocks
    // initialised.
    for (uint32_t back = c.pages; back-- > 0;)
        arena.pageEntry(PageIndex{firstPage + back}).storeRelease(makePageEntry(sizeClass, back));
}

void giveUpRun(const Arena& arena, PageIndex page, SizeClassId sizeClass) {
    // Release: none before the first, which unmakes the run.
    for (uint32_t i = 0; i < sizeClasses[sizeClass].pages; ++i) arena.pageEntry(PageIndex{page + i}).storeRelease(0);
}

/// Frees the runs whose blocks are all in the central lists, and rebuilds those lists from the others.
void compact(const Arena& arena) {
    forgetGaps(arena);
    central::clear(arena);  // the stacks may name blocks of runs that are given up now
    forEachRun(arena, [&](PageIndex page, SizeClassId sizeClass) {
        bool idle = true;
        forEachBlockOfRun(arena, page, sizeClass,
                          [&](BlockRef block) { idle = idle && central::isHomeless(*block); });
        if (idle) giveUpRun(arena, page, sizeClass);
    });
    central::rebuild(arena);
}

}  // namespace

Chain fromCentral(const DomainLock& lock, Spid home, SizeClassId sizeClass, uint32_t wanted) {
    const Arena& arena = lock.arena();
    Chain chain;
    while (chain.blocks < wanted) {
        const BlockRef block = central::pop(arena, sizeClass);
        if (!block) break;
        block->home.storeRelaxed(home);  // relaxed: whoever reads homes of free blocks has the lock
        prepend(chain, block);
    }
    share::add(arena.slot(indexOf(home)), Lines{chain.blocks * sizeClasses[sizeClass].lines});
    return chain;
}

Chain fromFreshPages(const DomainLock& lock, Spid home, SizeClassId sizeClass, uint32_t wanted) {
    const Arena& arena = lock.arena();
    const SizeClass& c = sizeClasses[sizeClass];
    uint32_t runs = std::max(1u, wanted / c.blocks);
    PageIndex first = takePages(arena, runs * c.pages);
    if (first == none && runs > 1) {
        runs = 1;
        first = takePages(arena, c.pages);
    }
    Chain chain;
    if (first == none) return chain;
    for (uint32_t run = runs; run-- > 0;) carveRun(arena, PageIndex{first + run * c.pages}, sizeClass, home, chain);
    share::add(arena.slot(indexOf(home)), Lines{chain.blocks * c.lines});
    return chain;
}

uint32_t relief(const Arena& arena) {
    const Header& header = arena.header();
    const uint32_t grown = header.centralLines.loadRelaxed() - header.centralLeast.loadRelaxed();
    return grown <= arena.pageCount() * linesPerPage ? grown : 0;  // or it is garbage
}

Reclaimed reclaim(const DomainLock& lock, Lines lines) {
    const Arena& arena = lock.arena();
    Header& header = arena.header();
    const uint32_t pressure = header.pressure.loadRelaxed();
    const bool wasPressed = pressure != header.pressureMet.loadRelaxed();
    const uint32_t enough = wasPressed ? lines : std::max(uint32_t{lines}, arena.usedPages() * linesPerPage / 64);
    const Throttle throttle(header.reclaiming);
    const bool isDue = throttle.isDue();
    if (!isDue && relief(arena) < enough) return Reclaimed::nothing;
    throttle.run([&] {
        if (isDue) reapAllDead(lock);
        compact(arena);
    });
    header.centralLeast.storeRelaxed(header.centralLines.loadRelaxed());
    header.pressureMet.storeRelaxed(pressure);
    return isDue ? Reclaimed::everything : Reclaimed::some;
}

uint32_t keptBy(const Arena& arena) {
    constexpr uint32_t plenty = (64u << 10) / lineBytes;
    const uint32_t lines = arena.pageCount() * linesPerPage;
    const uint32_t open = std::clamp(arena.header().openEndpoints.loadRelaxed(), 1u, slotCount);
    return std::min(std::max(lines / 256, plenty), lines / 8 / open);
}

}  // namespace lease
}  // namespace linx
