#ifndef LINXIPC_HOST_POOL_POOL_H
#define LINXIPC_HOST_POOL_POOL_H

#include <array>
#include <vector>

#include "host/arena/domain.h"
#include "host/pool/lease.h"

namespace linx {

/// An endpoint's own free blocks: private lists, so that allocating and freeing at home write nothing shared but the
/// block itself. Belongs to the endpoint's thread.
class Pool {
public:
    Pool(const Domain& domain, Spid home);

    /// A free block of at least `lines` lines for the caller to own, its reference in `ref` and its class in
    /// `sizeClass`. Null with errno: ENOMEM when the pool or the endpoint's share of it is exhausted, or why the cold
    /// lock could not be had.
    /// `lines` <= largestClassLines.
    Block* allocate(uint32_t lines, Ref& ref, uint32_t& sizeClass);

    /// Frees a block that belongs to the endpoint: into its own lists, or back to where it came from.
    void free(Block& block, Ref ref, uint32_t sizeClass);

    /// Takes back what others have freed of the endpoint's. Not in a cold section.
    void takeReturned();

    /// Makes all free blocks common, at the end of the endpoint. REQUIRES a cold section.
    void giveUp();

private:
    Block* take(uint32_t sizeClass, Ref& ref);
    Block* takeLarger(uint32_t& sizeClass, Ref& ref);
    [[gnu::noinline]] Block* allocateMore(uint32_t& sizeClass, Ref& ref);
    [[gnu::always_inline]] inline void place(Block& block, Ref ref, uint32_t sizeClass);
    void put(Block& block, Ref ref, uint32_t sizeClass);
    [[gnu::always_inline]] inline void markFree(Block& block, uint32_t sizeClass);
    bool hasRoom(uint32_t sizeClass) {
        return free_[sizeClass].size() != free_[sizeClass].capacity() || makeRoom(sizeClass);
    }
    [[gnu::noinline]] bool makeRoom(uint32_t sizeClass);
    [[gnu::cold, gnu::noinline]] void setAside(Block& block, Ref ref, uint32_t sizeClass);
    [[gnu::cold, gnu::noinline]] Block* takeAside(uint32_t sizeClass, Ref& ref);
    void placeReturned(Ref chain);
    [[gnu::noinline]] void keep(Block& block, Ref ref, uint32_t sizeClass);
    [[gnu::always_inline]] inline bool giveBack(Block& block, Ref ref, Spid home);
    [[gnu::noinline]] bool isKnown(Spid home);
    int leaseMore(uint32_t sizeClass);
    void trim();
    void shrinkTo(uint32_t lines);

    const Arena& arena() const { return domain_.arena(); }
    Slot& slot() const { return slot_; }

    const Domain& domain_;
    const Spid home_;
    Slot& slot_;
    std::array<std::vector<Ref>, sizeClassCount> free_;
    std::array<Ref, sizeClassCount> aside_{};  ///< free blocks for which there was no memory in the lists, linked
    std::array<uint32_t, sizeClassCount> nextLease_{};  ///< blocks to ask for; doubles with every lease
    uint32_t freeLines_ = 0;
    lease::Reclaiming reclaiming_;
    Spid latestHome_;  ///< of a block that was given back; its slot has been used
};

inline Block* Pool::allocate(uint32_t lines, Ref& ref, uint32_t& sizeClass) {
    sizeClass = classForLines(lines);
    if (Block* block = take(sizeClass, ref)) return block;
    return allocateMore(sizeClass, ref);
}

inline Block* Pool::take(uint32_t sizeClass, Ref& ref) {
    std::vector<Ref>& blocks = free_[sizeClass];
    while (!blocks.empty()) {
        ref = blocks.back();
        blocks.pop_back();
        freeLines_ -= sizeClasses[sizeClass].lines;
        Block* block = arena().rawBlock(ref);
        // Relaxed: both are this endpoint's own stores. A block that is not free any more was scribbled over; better
        // lost than given out twice.
        if (block->owner.loadRelaxed() == ownerFree && block->home.loadRelaxed() == home_) return block;
    }
    return aside_[sizeClass] == 0 ? nullptr : takeAside(sizeClass, ref);
}

}  // namespace linx

#endif
