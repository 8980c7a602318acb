#ifndef LINXIPC_HOST_ARENA_ARENA_H
#define LINXIPC_HOST_ARENA_ARENA_H

#include <algorithm>

#include "host/arena/known_memory.h"
#include "host/arena/layout.h"

namespace linx {

/// A block found in the arena, with its reference and size class. None if `block` is null.
struct BlockRef {
    Block* block = nullptr;
    Ref ref = Ref::none;
    SizeClassId sizeClass{};

    explicit operator bool() const { return block != nullptr; }
    Block* operator->() const { return block; }
    Block& operator*() const { return *block; }
};

/// The mapped arena: finds slots, hunts and blocks in it. What it hands out lies inside the mapping and has memory,
/// whatever the arena contains: a process that scribbles over it cannot lead another outside the mapping, or to a
/// page that a full file system cannot back. Any thread may use it.
class Arena {
public:
    /// `base` is the mapping of `file`, whose header has been checked; `pageCount` and the mapping's length agree.
    /// Without a file (-1) all of the mapping has memory.
    Arena(void* base, uint32_t pageCount, int file = -1)
        : base_(static_cast<char*>(base)),
          pageCount_(pageCount),
          firstPoolPage_(firstPoolPage(pageCount)),
          slots_(base_, file, slotsOffset / pageBytes, sizeof(Slot), slotCount),
          hunts_(base_, file, huntsOffset / pageBytes, sizeof(Hunt), huntCount),
          events_(base_, file, eventsOffset / pageBytes, sizeof(EventRing), slotCount),
          pages_(base_, file, firstPoolPage_, pageBytes, pageCount) {}
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    Header& header() const { return *at<Header>(0); }
    WordOf<SlotIndex>& bucket(uint32_t hash) const {
        return at<WordOf<SlotIndex>>(bucketsOffset)[hash & (slotCount - 1)];
    }
    Word& pageEntry(PageIndex index) const { return at<Word>(pageMapOffset)[index]; }

    /// REQUIRES a slot or a hunt that has memory: one's own, one of those in use, or one that was asked for below.
    Slot& slot(SlotIndex index) const { return at<Slot>(slotsOffset)[numberOf(index) & (slotCount - 1)]; }
    Hunt& hunt(uint32_t index) const { return at<Hunt>(huntsOffset)[index & (huntCount - 1)]; }

    /// What has happened at a slot. REQUIRES the slot that one has opened oneself, or a copy of the arena.
    EventRing& events(SlotIndex index) const {
        return at<EventRing>(eventsOffset)[numberOf(index) & (slotCount - 1)];
    }

    /// Whether the slot may be touched. The first is none.
    bool hasSlot(SlotIndex index) const { return index != SlotIndex::none && slots_.has(numberOf(index)); }

    /// Give memory to what is to be put to use, and to all before it. False with errno, ENOMEM when the file system
    /// is full.
    bool provideSlot(SlotIndex index) const {
        return slots_.provide(numberOf(index)) && events_.provide(numberOf(index));
    }
    bool provideHunt(uint32_t index) const { return hunts_.provide(index); }
    bool providePage(PageIndex index) const { return pages_.provide(index); }

    /// Slots 1 to `usedSlots()` and hunts 0 to `usedHunts() - 1` have been used. Relaxed: a slot's own life and a
    /// hunt's own hunter say the rest.
    uint32_t usedSlots() const {
        const uint32_t used = std::min(header().slotsUsed.loadRelaxed(), slotCount - 1);
        const uint32_t entries = slots_.clip(used + 1);  // with the first, which is none
        return entries == 0 ? 0 : entries - 1;
    }
    uint32_t usedHunts() const { return hunts_.clip(std::min(header().huntsUsed.loadRelaxed(), huntCount)); }

    /// Calls `visit(index, slot)` for every slot that has been used.
    template <class Visit>
    void forEachUsedSlot(Visit visit) const {
        const uint32_t used = usedSlots();
        for (uint32_t i = 1; i <= used; ++i) visit(SlotIndex{i}, slot(SlotIndex{i}));
    }

    /// Pages below have been leased at least once: all runs lie there. Under the domain lock, which orders it.
    uint32_t usedPages() const { return pages_.clip(std::min(header().pagesUsed.loadRelaxed(), pageCount_)); }

    uint32_t pageCount() const { return pageCount_; }
    uint32_t filePages() const { return firstPoolPage_ + pageCount_; }
    uint32_t filePageOf(PageIndex page) const { return firstPoolPage_ + page; }

    /// An upper bound of the number of blocks: no chain of the arena is longer.
    uint32_t maxBlocks() const { return pageCount_ * linesPerPage; }

    Ref refOf(const Block* block) const {
        return static_cast<Ref>(static_cast<size_t>(reinterpret_cast<const char*>(block) - base_) / lineBytes);
    }
    bool isPoolRef(Ref ref) const { return pageOf(ref) - firstPoolPage_ < pageCount_; }
    Ref refOfPage(PageIndex page) const { return Ref{filePageOf(page) * linesPerPage}; }

    /// The block at `ref`; none when no leased block starts there.
    BlockRef blockAt(Ref ref) const;

    /// The bytes at `ref` as a block. REQUIRES a reference where one is being made, or was found.
    Block* rawBlock(Ref ref) const { return at<Block>(size_t{numberOf(ref)} * lineBytes); }

    /// The block whose signal is at `signal`, an address of any origin; none when it is that of no signal.
    BlockRef blockOfSignal(const LinxSignal* signal) const;

private:
    template <class T>
    T* at(size_t offset) const {
        return reinterpret_cast<T*>(base_ + offset);
    }

    /// Whether the page may be touched, as one that has been leased.
    bool isLeasable(PageIndex page) const { return pages_.isKnown(page) || learnPage(page); }
    bool learnPage(PageIndex page) const { return page < header().pagesUsed.loadRelaxed() && pages_.has(page); }

    char* const base_;
    const uint32_t pageCount_;
    const uint32_t firstPoolPage_;
    const KnownMemory slots_;
    const KnownMemory hunts_;
    const KnownMemory events_;
    const KnownMemory pages_;
};

/// Finds blocks as `Arena::blockAt` does, but more cheaply if one is in the same page as the one before, as most
/// blocks of a chain are. It caches that page's layout, which is valid as long as one of its blocks is in use. Call
/// forget() before looking for blocks that came later: the page may have been leased anew with another block size.
///
/// Callgrind counts 22 instructions for each block of a walk along neighbours of one line, and 64 without this; where
/// no block lies beside the one before, 97. A pool that pops a block asks it, too, whether the next one is one.
class NearbyBlocks {
public:
    explicit NearbyBlocks(const Arena& arena) : arena_(arena) {}

    void forget() {
        page_ = 0;
        starts_ = 0;
    }

    /// Whether a block of the class lies at `ref`, as far as the cached page tells.
    bool knows(Ref ref, SizeClassId sizeClass) const {
        return pageOf(ref) == page_ && sizeClass == sizeClass_ && (starts_ >> lineInPage(ref) & 1) != 0;
    }

    BlockRef at(Ref ref) {
        if (pageOf(ref) != page_) return findFar(ref);
        if ((starts_ >> lineInPage(ref) & 1) == 0) return {};
        return {arena_.rawBlock(ref), ref, sizeClass_};
    }

private:
    BlockRef findFar(Ref ref) {
        if (pageOf(ref) == 0) return {};  // in the header: the end of most chains
        const BlockRef block = arena_.blockAt(ref);
        if (!block || sizeClasses[block.sizeClass].pages != 1) return block;
        page_ = pageOf(ref);
        sizeClass_ = block.sizeClass;
        starts_ = sizeClasses[sizeClass_].starts;
        return block;
    }

    const Arena& arena_;
    uint32_t page_ = 0;  ///< of the file, whose first is the header's
    SizeClassId sizeClass_{};
    uint64_t starts_ = 0;  ///< as in SizeClass; none in the header
};

inline BlockRef Arena::blockAt(Ref ref) const {
    const PageIndex page{pageOf(ref) - firstPoolPage_};
    if (!isLeasable(page)) return {};
    // Acquire [page entry]: pairs with carveRun in lease.cpp, so that a run that is seen leased is seen initialised.
    const uint32_t entry = pageEntry(page).loadAcquire();
    const SizeClassId sizeClass = entryClass(entry);
    if (sizeClass >= sizeClassCount || entryBack(entry) > page) return {};
    const SizeClass& c = sizeClasses[sizeClass];
    if (!isLeasable(PageIndex{page - entryBack(entry) + c.pages - 1})) return {};
    const bool starts = entryBack(entry) == 0
                            ? (c.starts >> lineInPage(ref) & 1) != 0
                            : startsBlock(sizeClass, entryBack(entry) * linesPerPage + lineInPage(ref));
    if (!starts) return {};
    return {rawBlock(ref), ref, sizeClass};
}

inline BlockRef Arena::blockOfSignal(const LinxSignal* signal) const {
    // As numbers: the address may have nothing to do with the mapping.
    const uintptr_t offset =
        reinterpret_cast<uintptr_t>(signal) - reinterpret_cast<uintptr_t>(base_) - offsetof(Block, signal);
    if (offset >= size_t{filePages()} * pageBytes || offset % lineBytes != 0) return {};
    return blockAt(static_cast<Ref>(offset / lineBytes));
}

}  // namespace linx

#endif
