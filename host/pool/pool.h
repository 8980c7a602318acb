#ifndef LINXIPC_HOST_POOL_POOL_H
#define LINXIPC_HOST_POOL_POOL_H

#include <array>

#include "host/arena/domain.h"
#include "host/mailbox/take_all_stack.h"
#include "host/pool/lease.h"

namespace linx {

/// An endpoint's own free blocks, a list for each size class, so that allocating and freeing at home write nothing
/// shared but the block itself. Belongs to the endpoint's thread.
///
/// The lists are linked through the blocks, where other processes may garble the links. So a block is checked when it
/// comes to the head of its list, and a list ends after as many blocks as were put into it, which bounds every walk,
/// whatever the links say. Heads and counts are private, so assertions on them hold, whatever is in the arena.
class Pool {
public:
    Pool(const Domain& domain, Spid home);

    /// A free block of at least `lines` lines for the caller to own. None with errno: ENOMEM when the pool or the
    /// endpoint's share of it is exhausted, or why the domain lock could not be had. `lines` <= largestClassLines.
    BlockRef allocate(Lines lines);

    /// A free block of exactly this class, if the endpoint has some and it shows at once.
    bool popAtOnce(SizeClassId sizeClass, BlockRef& block);

    /// Frees a block that belongs to the endpoint: into its own lists, or back to where it came from.
    void free(BlockRef block);

    /// The same if its home is that of the last block given back. False when it is still the caller's.
    bool giveBackAtOnce(BlockRef block) {
        const Spid home = block->home.loadRelaxed();
        return home == latestHome_ && giveBack(block, home);
    }

    /// Takes back what others have freed of the endpoint's. Not under the domain lock.
    void takeReturned();

    /// Whether an endpoint ran out of memory since this one last gave up what it keeps.
    bool isUnderPressure() const { return arena().header().pressure.loadRelaxed() != pressureSeen_; }

    /// Then gives returned and free blocks to the central lists. If the lock is busy, retries at most once per kernel
    /// tick. Not under the domain lock.
    void yieldToPressure();

    /// Whether the lock was taken then.
    bool owesRelief() const { return owesRelief_; }

    /// Gives all free blocks to the central lists, at the end of the endpoint. False when others have garbled the
    /// lists, so that all of the arena must be looked through for the rest. REQUIRES the domain lock.
    bool giveUp();

private:
    /// What may be had of others where there is no memory.
    enum class Hope {
        none,
        soon,  ///< they have been asked just now
        ifAsked
    };

    BlockRef pop(SizeClassId sizeClass);
    /// Relaxed: both are this endpoint's own stores. A block that is not free any more was scribbled over; better
    /// lost than given out twice.
    bool isFreeHere(const Block& block) const {
        return block.owner.loadRelaxed() == OwnerWord::free && block.home.loadRelaxed() == home_;
    }
    BlockRef popLarger(SizeClassId sizeClass);
    void keep(BlockRef block);
    void adopt(Block& block, Spid home, Lines lines);
    void markFree(BlockRef block);
    void prepend(Ref head, Block& last, uint32_t count, SizeClassId sizeClass);
    bool add(const lease::Chain& chain, SizeClassId sizeClass);
    bool keepsTooMuch() { return mostLines_ > keptLines_ && countLines() > keptLines_; }
    uint32_t countLines();
    bool giveBack(BlockRef block, Spid home);
    bool learnHome(Spid home);
    uint32_t leasedLines() const;
    uint32_t countToLease(SizeClassId sizeClass);
    int leaseMore(SizeClassId sizeClass, Hope& hope);
    bool fromCentral(const DomainLock& lock, SizeClassId sizeClass, uint32_t wanted);
    bool fromFreshPages(const DomainLock& lock, SizeClassId sizeClass, uint32_t wanted);
    bool afterReclaim(const DomainLock& lock, SizeClassId sizeClass, lease::Reclaimed& looked);
    bool fromLargerClass(const DomainLock& lock, SizeClassId sizeClass);
    bool leaseOne(const DomainLock& lock, SizeClassId sizeClass);
    Hope hopeAfter(lease::Reclaimed looked) const;
    void awaitRelief(SizeClassId sizeClass);
    void trim();
    void shrinkTo(uint32_t lines);

    /// False once somebody has taken the endpoint for dead. Relaxed: true under the lock, and without it
    /// perhaps a moment ago.
    bool isHomeOpen() const { return slot().life.loadRelaxed() == openAs(home_); }

    const Arena& arena() const { return domain_.arena(); }
    Slot& slot() const { return slot_; }

    const Domain& domain_;
    const Spid home_;
    Slot& slot_;
    std::array<Ref, sizeClassCount> free_{};            ///< heads of the lists that are not empty
    std::array<uint32_t, sizeClassCount> count_{};      ///< of the blocks in them
    std::array<uint32_t, sizeClassCount> nextLease_{};  ///< blocks to ask for; doubles with every lease
    NearbyBlocks nearby_;
    bool lostSome_ = false;   ///< blocks that were put into the lists have not been found there
    uint32_t mostLines_ = 0;  ///< upper bound of the free lines: the last count and all added since
    uint32_t keptLines_;      ///< beyond so many free lines some go to the central lists
    bool owesRelief_ = false;
    uint64_t yieldTriedAt_ = 0;  ///< coarse milliseconds: when it was in vain last
    uint32_t pressureSeen_;      ///< the header's count when this endpoint last gave up what it keeps
    Spid latestHome_;            ///< home of the last block given back: never this endpoint
    Slot* latestHomesSlot_;      ///< always a used slot
    uint32_t mostReturned_ = 0;  ///< give nothing back there while more than so many lines wait to be collected
};

inline bool Pool::popAtOnce(SizeClassId sizeClass, BlockRef& block) {
    const uint32_t count = count_[sizeClass];
    if (count == 0) return false;
    const Ref ref = free_[sizeClass];
    Block* const first = arena().rawBlock(ref);
    const Ref next = first->next.loadRelaxed();
    if ((count != 1 && !nearby_.knows(next, sizeClass)) || !isFreeHere(*first)) return false;
    free_[sizeClass] = next;
    count_[sizeClass] = count - 1;
    block = {first, ref, sizeClass};
    return true;
}

/// Returns a block to `home`, the latest home, unless it has ended or lets blocks pile up.
inline bool Pool::giveBack(BlockRef block, Spid home) {
    Slot& there = *latestHomesSlot_;
    const uint32_t waiting = there.returnedLines.loadRelaxed();
    if (there.life.loadAcquire() != openAs(home) || waiting > mostReturned_) return false;  // as in isOpen
    // Relaxed, and no compare-and-swap: about right will do.
    there.returnedLines.storeRelaxed(waiting + classLines[block.sizeClass]);
    // See recoverLostInFlight: the reaper asks whether this one was pushed. Release [sending]: after the push before
    // it.
    slot().sending.storeRelease(block.ref);
    block->sender.storeRelaxed(home_);
    block->owner.storeRelease(inFlightTo(home));  // [owner]
    if (!stack::isRefused(stack::push(there.returned, block))) return true;
    block->owner.storeRelaxed(heldBy(home_));
    return false;
}

}  // namespace linx

#endif
