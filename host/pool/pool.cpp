#include "host/pool/pool.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "host/arena/common_stacks.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/announced_stack.h"
#include "host/pool/lease.h"

namespace linx {
namespace {

constexpr uint32_t largestLeaseLines = (64u << 10) / lineBytes;

/// How many free lines an endpoint keeps for itself before it gives half of them to all.
uint32_t surplusLines(const Arena& arena) {
    return std::max(arena.unitCount() * linesPerUnit / 64, largestLeaseLines);
}

}  // namespace

Pool::Pool(const Domain& domain, Spid home)
    : domain_(domain), home_(home), slot_(arena().slot(indexOf(home))), latestHome_(home) {}

/// When the endpoint's own list has run dry.
Block* Pool::allocateMore(uint32_t& sizeClass, Ref& ref) {
    takeReturned();
    if (Block* block = take(sizeClass, ref)) return block;
    const int failure = leaseMore(sizeClass);
    if (Block* block = take(sizeClass, ref)) return block;
    if (Block* block = takeLarger(sizeClass, ref)) return block;
    errno = failure;
    return nullptr;
}

Block* Pool::takeLarger(uint32_t& sizeClass, Ref& ref) {
    while (++sizeClass < sizeClassCount) {
        if (Block* block = take(sizeClass, ref)) return block;
    }
    return nullptr;
}

/// Frees a block for which there is room.
void Pool::place(Block& block, Ref ref, uint32_t sizeClass) {
    free_[sizeClass].push_back(ref);
    markFree(block, sizeClass);
}

void Pool::put(Block& block, Ref ref, uint32_t sizeClass) {
    hasRoom(sizeClass) ? place(block, ref, sizeClass) : setAside(block, ref, sizeClass);
}

void Pool::markFree(Block& block, uint32_t sizeClass) {
    freeLines_ += sizeClasses[sizeClass].lines;
    if (block.home.loadRelaxed() != home_) block.home.storeRelaxed(home_);
    // Release: (E), whoever finds the block free, finds its home as new. Dying before it leaves the block owned,
    // after it free and at home: the reaper finds both.
    block.owner.storeRelease(ownerFree);
}

bool Pool::makeRoom(uint32_t sizeClass) {
    std::vector<Ref>& blocks = free_[sizeClass];
    try {
        blocks.reserve(std::max<size_t>(16, 2 * blocks.capacity()));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// Frees a block without asking for memory.
void Pool::setAside(Block& block, Ref ref, uint32_t sizeClass) {
    block.next.storeRelaxed(aside_[sizeClass]);  // relaxed: nobody else follows it
    aside_[sizeClass] = ref;
    markFree(block, sizeClass);
}

Block* Pool::takeAside(uint32_t sizeClass, Ref& ref) {
    ref = aside_[sizeClass];
    uint32_t found;
    Block* block = arena().blockAt(ref, found);
    const bool isOurs = block != nullptr && found == sizeClass && block->owner.loadRelaxed() == ownerFree &&
                        block->home.loadRelaxed() == home_;
    if (!isOurs) block = nullptr;  // somebody scribbled over the links
    aside_[sizeClass] = isOurs ? block->next.loadRelaxed() : 0;
    if (isOurs) freeLines_ -= sizeClasses[sizeClass].lines;
    return block;
}

void Pool::free(Block& block, Ref ref, uint32_t sizeClass) {
    const Spid home = block.home.loadRelaxed();
    if (home == home_ || !giveBack(block, ref, home)) keep(block, ref, sizeClass);
}

void Pool::keep(Block& block, Ref ref, uint32_t sizeClass) {
    // Its home has ended: the block stays here.
    if (block.home.loadRelaxed() != home_) slot().leasedLines.addRelaxed(sizeClasses[sizeClass].lines);
    put(block, ref, sizeClass);
    if (freeLines_ > surplusLines(arena())) trim();
}

/// Returns a block to `home`, unless that has ended.
bool Pool::giveBack(Block& block, Ref ref, Spid home) {
    if (home != latestHome_ && !isKnown(home)) return false;
    Slot& there = arena().slot(indexOf(home));
    if (there.life.loadAcquire() != (home | lifeOpen)) return false;  // as in isOpen
    // See recoverStrandedSend: the reaper asks whether this one was pushed. Release: (J), after the push before it.
    slot().sending.storeRelease(ref);
    block.sender.storeRelaxed(home_);
    block.owner.storeRelease(home | ownerTransit);  // (E)
    if (stack::push(there.returned, block, ref) != stack::closed) return true;
    block.owner.storeRelaxed(home_);
    return false;
}

/// Whether `home` is one whose slot can be looked at.
bool Pool::isKnown(Spid home) {
    if (!wasUsed(arena(), home)) return false;
    latestHome_ = home;
    return true;
}

void Pool::takeReturned() {
    Slot& own = slot();
    const Ref chain = stack::take(own.returned, own.takingReturned, stack::empty);
    if (chain == stack::empty) return;
    bool all = true;
    stack::walk(arena(), chain, [&](Block& block, Ref ref, uint32_t sizeClass) {
        const uint32_t owner = block.owner.loadAcquire();  // the take would do (F)
        if ((owner & ownerTransit) == 0 || indexOf(owner) != indexOf(home_)) return;
        // One that an earlier user of the slot was home to, given back by somebody who was held up, stays here.
        if (block.home.loadRelaxed() != home_) own.leasedLines.addRelaxed(sizeClasses[sizeClass].lines);
        if (hasRoom(sizeClass)) return place(block, ref, sizeClass);
        block.owner.storeRelaxed(home_);
        all = false;
    });
    own.takingReturned.storeRelease(0);  // (I), after the last block got its owner
    if (!all) placeReturned(chain);
    if (freeLines_ > surplusLines(arena())) trim();
}

/// Frees the blocks of a returned chain for which there was no memory. Not before the whole chain has its owners,
/// since setting a block aside breaks the chain.
void Pool::placeReturned(Ref chain) {
    stack::walk(arena(), chain, [&](Block& block, Ref ref, uint32_t sizeClass) {
        if (block.owner.loadRelaxed() == home_) put(block, ref, sizeClass);
    });
}

/// Returns the errno value that tells why there may be no block nevertheless.
int Pool::leaseMore(uint32_t sizeClass) {
    const ColdSection cold(domain_);
    if (!cold.entered()) return errno;
    const SizeClass& c = sizeClasses[sizeClass];
    const uint32_t share = lease::shareOf(arena());
    if (slot().leasedLines.loadRelaxed() + c.lines > share) shrinkTo(0);
    const uint32_t leased = slot().leasedLines.loadRelaxed();
    if (leased + c.lines > share) return ENOMEM;
    const uint32_t most = std::max(1u, largestLeaseLines / c.lines);
    const uint32_t wanted = std::min({std::max(nextLease_[sizeClass], 1u), most, (share - leased) / c.lines});
    nextLease_[sizeClass] = std::min(most, std::max(wanted * 2, c.blocks));

    std::vector<Ref>& blocks = free_[sizeClass];
    const size_t before = blocks.size();
    lease::fromCommon(cold, home_, sizeClass, wanted, blocks);
    if (blocks.size() == before) lease::fromUnits(cold, home_, sizeClass, wanted, blocks);
    if (blocks.size() == before) {
        shrinkTo(0);  // small blocks kept here may be all that keeps a run from becoming units again
        if (!reclaiming_.isPointless(cold)) reclaiming_.reclaim(cold);
        lease::fromCommon(cold, home_, sizeClass, wanted, blocks);
    }
    if (blocks.size() == before) lease::fromUnits(cold, home_, sizeClass, 1, blocks);
    freeLines_ += static_cast<uint32_t>(blocks.size() - before) * c.lines;
    for (uint32_t larger = sizeClass + 1; blocks.size() == before && larger < sizeClassCount; ++larger) {
        const uint32_t lines = linesOfClass(larger);
        if (leased + lines > share) return ENOMEM;
        const size_t had = free_[larger].size();
        lease::fromCommon(cold, home_, larger, 1, free_[larger]);
        if (free_[larger].size() == had) continue;
        freeLines_ += lines;
        return ENOMEM;
    }
    return ENOMEM;
}

void Pool::giveUp() {
    shrinkTo(0);
}

void Pool::trim() {
    const ColdSection cold(domain_);
    if (cold.entered()) shrinkTo(surplusLines(arena()) / 2);
}

/// Makes free blocks common, the large ones first, until no more than `lines` lines are left. REQUIRES a cold
/// section.
void Pool::shrinkTo(uint32_t lines) {
    uint32_t given = 0;
    for (uint32_t sizeClass = sizeClassCount; sizeClass-- > 0;) {
        Ref ref;
        while (freeLines_ > lines) {
            Block* block = take(sizeClass, ref);
            if (block == nullptr) break;
            common::disown(*block);
            common::push(arena(), *block, ref, sizeClass);
            given += sizeClasses[sizeClass].lines;
        }
    }
    slot().leasedLines.addRelaxed(0u - given);
}

}  // namespace linx
