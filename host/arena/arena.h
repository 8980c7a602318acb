#ifndef LINXIPC_HOST_ARENA_ARENA_H
#define LINXIPC_HOST_ARENA_ARENA_H

#include "host/arena/layout.h"

namespace linx {

/// The mapped arena: finds slots, hunts and blocks in it. What it hands out lies inside the mapping whatever the
/// words of the arena say, so that nobody who scribbles over it can lead another process out of it. Any thread may
/// use it.
class Arena {
public:
    /// `base` is the mapping of a file whose header has been checked; `unitCount` and the mapping's length agree.
    Arena(void* base, uint32_t unitCount)
        : base_(static_cast<char*>(base)), unitCount_(unitCount), firstPoolPage_(firstPoolPage(unitCount)) {}

    Header& header() const { return *at<Header>(0); }
    Word& bucket(uint32_t hash) const { return at<Word>(bucketsOffset)[hash & (slotCount - 1)]; }
    Slot& slot(uint32_t index) const { return at<Slot>(slotsOffset)[index & (slotCount - 1)]; }
    Hunt& hunt(uint32_t index) const { return at<Hunt>(huntsOffset)[index & (huntCount - 1)]; }
    Word& unit(uint32_t index) const { return at<Word>(unitTableOffset)[index]; }

    uint32_t unitCount() const { return unitCount_; }
    uint32_t fileUnits() const { return firstPoolPage_ + unitCount_; }
    uint32_t pageOfUnit(uint32_t unit) const { return firstPoolPage_ + unit; }

    /// An upper bound of the number of blocks: no chain of the arena is longer.
    uint32_t maxBlocks() const { return unitCount_ * linesPerUnit; }

    Ref refOf(const Block* block) const {
        return static_cast<Ref>(static_cast<size_t>(reinterpret_cast<const char*>(block) - base_) / lineBytes);
    }
    Ref refOfUnit(uint32_t unit) const { return pageOfUnit(unit) * linesPerUnit; }

    /// The block at `ref`, whose size class goes to `sizeClass`; null when no leased block starts there.
    Block* blockAt(Ref ref, uint32_t& sizeClass) const;
    Block* blockAt(Ref ref) const {
        uint32_t ignored;
        return blockAt(ref, ignored);
    }

    /// The bytes at `ref` as a block. REQUIRES a reference where one is being made, or was found.
    Block* rawBlock(Ref ref) const { return at<Block>(size_t{ref} * lineBytes); }

    /// The block whose signal is at `signal`, an address of any origin, with its reference and size class; null when
    /// none is.
    Block* blockOfSignal(const LinxSignal* signal, Ref& ref, uint32_t& sizeClass) const;
    Block* blockOfSignal(const LinxSignal* signal) const {
        Ref ref;
        uint32_t ignored;
        return blockOfSignal(signal, ref, ignored);
    }

private:
    template <class T>
    T* at(size_t offset) const {
        return reinterpret_cast<T*>(base_ + offset);
    }

    char* base_;
    uint32_t unitCount_;
    uint32_t firstPoolPage_;
};

/// Finds blocks as `Arena::blockAt` does, more cheaply where one lies beside the one before: most blocks of a chain
/// do. For one walk, in which no unit is leased anew that a block of the chain lies in.
class NearbyBlocks {
public:
    explicit NearbyBlocks(const Arena& arena) : arena_(arena) {}

    Block* at(Ref ref, uint32_t& sizeClass) {
        if (ref / linesPerUnit != page_) return findFar(ref, sizeClass);
        sizeClass = sizeClass_;
        return (starts_ >> ref % linesPerUnit & 1) != 0 ? arena_.rawBlock(ref) : nullptr;
    }

private:
    Block* findFar(Ref ref, uint32_t& sizeClass) {
        Block* block = arena_.blockAt(ref, sizeClass);
        if (block == nullptr || sizeClasses[sizeClass].units != 1) return block;
        page_ = ref / linesPerUnit;
        sizeClass_ = sizeClass;
        starts_ = sizeClasses[sizeClass].starts;
        return block;
    }

    const Arena& arena_;
    uint32_t page_ = 0;  ///< of the file, whose first is the header's
    uint32_t sizeClass_ = 0;
    uint64_t starts_ = 0;  ///< as in SizeClass; none in the header
};

inline Block* Arena::blockAt(Ref ref, uint32_t& sizeClass) const {
    const uint32_t unitIndex = ref / linesPerUnit - firstPoolPage_;
    if (unitIndex >= unitCount_) return nullptr;
    // Acquire: (O), pairs with cutRun in lease.cpp, so that a run that is seen leased is seen initialised.
    const uint32_t entry = unit(unitIndex).loadAcquire();
    sizeClass = entryClass(entry);
    if (sizeClass >= sizeClassCount || entryBack(entry) > unitIndex) return nullptr;
    const SizeClass& c = sizeClasses[sizeClass];
    if (unitIndex - entryBack(entry) + c.units > unitCount_) return nullptr;
    const bool starts = entryBack(entry) == 0
                            ? (c.starts >> ref % linesPerUnit & 1) != 0
                            : startsBlock(sizeClass, entryBack(entry) * linesPerUnit + ref % linesPerUnit);
    return starts ? at<Block>(size_t{ref} * lineBytes) : nullptr;
}

inline Block* Arena::blockOfSignal(const LinxSignal* signal, Ref& ref, uint32_t& sizeClass) const {
    // As numbers: the address may have nothing to do with the mapping.
    const uintptr_t offset =
        reinterpret_cast<uintptr_t>(signal) - reinterpret_cast<uintptr_t>(base_) - offsetof(Block, signal);
    if (offset >= size_t{fileUnits()} * unitBytes || offset % lineBytes != 0) return nullptr;
    ref = static_cast<Ref>(offset / lineBytes);
    return blockAt(ref, sizeClass);
}

}  // namespace linx

#endif
