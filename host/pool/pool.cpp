#include "host/pool/pool.h"

#include <sched.h>
#include <time.h>

#include <algorithm>
#include <cassert>
#include <cerrno>

#include "host/arena/central_lists.h"
#include "host/arena/share.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/doorbell.h"
#include "host/pool/lease.h"
#include "host/pool/pressure.h"
#include "host/system/clock.h"

namespace linx {
namespace {

constexpr uint32_t largestLeaseLines = (64u << 10) / lineBytes;
constexpr long shortestNap = 90000;  ///< nanoseconds
constexpr int mostNaps = 5;          ///< doubling; begun only while relief is expected
constexpr int attemptsToYield = 20;

}  // namespace

Pool::Pool(const Domain& domain, Spid home)
    : domain_(domain),
      home_(home),
      slot_(arena().slot(indexOf(home))),
      nearby_(arena()),
      keptLines_(lease::keptBy(arena())),
      pressureSeen_(arena().header().pressure.loadRelaxed()),
      latestHome_(noHome),
      latestHomesSlot_(&slot_) {}

BlockRef Pool::allocate(Lines lines) {
    const SizeClassId sizeClass = classForLines(lines);
    if (const BlockRef block = pop(sizeClass)) return block;
    takeReturned();
    if (const BlockRef block = pop(sizeClass)) return block;
    Hope hope = Hope::none;
    const int failure = leaseMore(sizeClass, hope);
    if (hope == Hope::ifAsked) pressure::raise(domain_, home_);
    if (hope != Hope::none) awaitRelief(sizeClass);
    if (const BlockRef block = pop(sizeClass)) return block;
    if (const BlockRef block = popLarger(sizeClass)) return block;
    errno = failure;
    return {};
}

/// A free block of exactly this class, if there is one. What others have garbled is lost until the endpoint ends.
BlockRef Pool::pop(SizeClassId sizeClass) {
    uint32_t& count = count_[sizeClass];
    while (count != 0) {
        const Ref ref = free_[sizeClass];
        assert(arena().isPoolRef(ref));
        Block* block = arena().rawBlock(ref);
        const Ref next = block->next.loadRelaxed();
        --count;
        if (count != 0) {
            const BlockRef found = nearby_.at(next);
            if (!found || found.sizeClass != sizeClass) {
                count = 0;  // the link leads nowhere
                lostSome_ = true;
            }
        }
        free_[sizeClass] = next;
        if (isFreeHere(*block)) return {block, ref, sizeClass};
        lostSome_ = true;
    }
    return {};
}

BlockRef Pool::popLarger(SizeClassId sizeClass) {
    for (uint32_t larger = sizeClass + 1; larger < sizeClassCount; ++larger) {
        if (const BlockRef block = pop(SizeClassId{larger})) return block;
    }
    return {};
}

/// Puts `count` linked blocks in front of the others.
void Pool::prepend(Ref head, Block& last, uint32_t count, SizeClassId sizeClass) {
    assert(count != 0 && arena().isPoolRef(head));
    last.next.storeRelaxed(free_[sizeClass]);  // relaxed: nobody else follows it
    free_[sizeClass] = head;
    count_[sizeClass] += count;
    mostLines_ += count * sizeClasses[sizeClass].lines;
}

/// Whether there was anything in the chain.
bool Pool::add(const lease::Chain& chain, SizeClassId sizeClass) {
    assert(chain.empty() == (chain.last == nullptr));
    if (chain.empty()) return false;
    nearby_.forget();  // these pages may have been others'
    prepend(chain.head, *chain.last, chain.blocks, sizeClass);
    return true;
}

/// Counts the free lines. keepsTooMuch() avoids that while an upper bound is low enough.
uint32_t Pool::countLines() {
    uint32_t lines = 0;
    for (uint32_t c = 0; c < sizeClassCount; ++c) lines += count_[c] * sizeClasses[c].lines;
    assert(lines <= mostLines_);
    mostLines_ = lines;
    return lines;
}

/// Becomes the block's home: the old one has ended or has plenty, or was an earlier user of the slot and got the
/// block late.
void Pool::adopt(Block& block, Spid home, Lines lines) {
    nearby_.forget();  // as in add()
    // In this order: a death in between counts a block twice, which makes a share smaller, never larger.
    share::add(slot(), lines);
    block.home.storeRelease(home_);
    if (isOpen(arena(), home)) share::remove(arena().slot(indexOf(home)), home, lines);
}

void Pool::markFree(BlockRef block) {
    const Spid home = block->home.loadRelaxed();
    if (home != home_) adopt(*block, home, sizeClasses[block.sizeClass].lines);
    // Release [owner]: whoever finds the block free, finds its home as new. Dying before it leaves the block owned,
    // after it free and at home: the reaper finds both.
    block->owner.storeRelease(OwnerWord::free);
}

void Pool::free(BlockRef block) {
    const Spid home = block->home.loadRelaxed();
    const bool isGiven = home != home_ && learnHome(home) && giveBack(block, home);
    if (!isGiven) keep(block);
}

void Pool::keep(BlockRef block) {
    markFree(block);
    prepend(block.ref, *block, 1, block.sizeClass);
    if (keepsTooMuch()) trim();
}

/// Makes `home` the latest home. False if its slot was never used.
bool Pool::learnHome(Spid home) {
    if (!wasUsed(arena(), home)) return false;
    latestHome_ = home;
    latestHomesSlot_ = &arena().slot(indexOf(home));
    mostReturned_ = lease::keptBy(arena());
    return true;
}

void Pool::takeReturned() {
    Slot& own = slot();
    if (!isHomeOpen()) return;  // what comes back there is another's by now
    // Only approximate: endpoints that give back at once may overwrite each other's.
    own.returnedLines.storeRelaxed(0);
    // Reverses the order: the block returned first is reused first, as the other processor's cache has had the most
    // time to release it. Otherwise a stream of small signals takes 50 % longer.
    const Ref chain = stack::takeAll(arena(), own.returned, own.returnedClaim, stack::empty, [&](BlockRef block) {
        if (!isInFlightTo(block->owner.loadAcquire(), indexOf(home_))) return;  // ordered by [pushed]
        markFree(block);
        // Claim the rest, in case this process dies once the link is overwritten. [claim]
        own.returnedClaim.storeRelease(block->next.loadRelaxed());
        prepend(block.ref, *block, 1, block.sizeClass);
    });
    if (chain != stack::empty && keepsTooMuch()) trim();
}

/// Lines that the endpoint is home to; 0 if that is garbage, more than there are.
uint32_t Pool::leasedLines() const {
    const uint32_t leased = share::linesOf(slot());
    return leased > arena().pageCount() * linesPerPage ? 0 : leased;
}

/// How many blocks of the class to lease: twice as many with every lease, as far as the endpoint's share and what it
/// may keep go. 0 when its share is used up.
uint32_t Pool::countToLease(SizeClassId sizeClass) {
    const SizeClass& c = sizeClasses[sizeClass];
    const uint32_t limit = share::limitOf(arena());
    if (leasedLines() + c.lines > limit) shrinkTo(0);
    const uint32_t leased = leasedLines();
    if (leased + c.lines > limit) return 0;
    keptLines_ = lease::keptBy(arena());
    const uint32_t most = std::max(1u, std::min(largestLeaseLines, keptLines_) / c.lines);
    const uint32_t wanted = std::min({std::max(nextLease_[sizeClass], 1u), most, (limit - leased) / c.lines});
    nextLease_[sizeClass] = std::min(most, std::max(wanted * 2, c.blocks));
    return wanted;
}

/// Returns the errno value to report if no block is found afterwards: others may have garbled even what was just
/// leased. `hope` tells whether others may give up what is wanted.
int Pool::leaseMore(SizeClassId sizeClass, Hope& hope) {
    const DomainLock lock(domain_);
    if (!lock.isHeld()) return errno;
    if (!isHomeOpen()) return ECONNABORTED;  // nobody would give back what it leases
    const uint32_t wanted = countToLease(sizeClass);
    if (wanted == 0) return ENOMEM;
    lease::Reclaimed looked = lease::Reclaimed::nothing;
    const bool isLeased = fromCentral(lock, sizeClass, wanted) || fromFreshPages(lock, sizeClass, wanted) ||
                          afterReclaim(lock, sizeClass, looked) || fromLargerClass(lock, sizeClass);
    if (!isLeased) hope = hopeAfter(looked);
    return ENOMEM;
}

bool Pool::fromCentral(const DomainLock& lock, SizeClassId sizeClass, uint32_t wanted) {
    return add(lease::fromCentral(lock, home_, sizeClass, wanted), sizeClass);
}

bool Pool::fromFreshPages(const DomainLock& lock, SizeClassId sizeClass, uint32_t wanted) {
    return add(lease::fromFreshPages(lock, home_, sizeClass, wanted), sizeClass);
}

/// Leases one block after reclaiming memory; `looked` tells how much was searched.
bool Pool::afterReclaim(const DomainLock& lock, SizeClassId sizeClass, lease::Reclaimed& looked) {
    shrinkTo(0);  // small blocks kept here may be all that keeps a run from becoming pages again
    looked = lease::reclaim(lock, sizeClasses[sizeClass].lines);
    return fromCentral(lock, sizeClass, 1) || fromFreshPages(lock, sizeClass, 1);
}

/// One block of a larger class, as far as the endpoint's share goes.
bool Pool::fromLargerClass(const DomainLock& lock, SizeClassId sizeClass) {
    const uint32_t limit = share::limitOf(arena());
    const uint32_t leased = leasedLines();
    const uint32_t room = limit > leased ? limit - leased : 0;
    for (uint32_t larger = sizeClass + 1; larger < sizeClassCount && sizeClasses[larger].lines <= room; ++larger) {
        if (fromCentral(lock, SizeClassId{larger}, 1)) return true;
    }
    return false;
}

bool Pool::leaseOne(const DomainLock& lock, SizeClassId sizeClass) {
    return fromCentral(lock, sizeClass, 1) || fromFreshPages(lock, sizeClass, 1) || fromLargerClass(lock, sizeClass);
}

/// Whether others may yet give up what could not be leased.
Pool::Hope Pool::hopeAfter(lease::Reclaimed looked) const {
    if (looked == lease::Reclaimed::everything) return Hope::ifAsked;
    // After a partial search nobody is asked: how often that is done is bounded for all.
    return pressure::isRecent(arena()) ? Hope::soon : Hope::none;
}

/// Others have been asked to give up what they keep. Waits a little for that, and leases of it what fits.
void Pool::awaitRelief(SizeClassId sizeClass) {
    const Lines lines = sizeClasses[sizeClass].lines;
    long pause = shortestNap;
    uint32_t before = 0;
    for (int naps = 0; naps == 0 || (naps < mostNaps && pressure::isRecent(arena())); ++naps, pause *= 2) {
        const timespec time = {0, pause};
        nanosleep(&time, nullptr);
        const uint32_t relief = lease::relief(arena());
        if (relief < lines) continue;
        const DomainLock lock(domain_);
        if (!lock.isHeld() || leaseOne(lock, sizeClass)) return;
        // The relief is of other sizes. The arena is searched for it once, when no more is coming.
        const bool isAll = relief == before || naps + 1 == mostNaps || !pressure::isRecent(arena());
        before = relief;
        if (isAll && lease::reclaim(lock, lines) != lease::Reclaimed::nothing && leaseOne(lock, sizeClass)) return;
    }
}

bool Pool::giveUp() {
    shrinkTo(0);
    return !lostSome_;
}

void Pool::trim() {
    keptLines_ = lease::keptBy(arena());
    if (!keepsTooMuch()) return;
    const DomainLock lock(domain_, DomainLock::Patience::tryOnce);
    if (lock.isHeld()) {
        shrinkTo(keptLines_ / 2);
    } else {
        // Do not retry with every block freed while the lock is busy; and rather give back than keep.
        keptLines_ = mostLines_ + keptLines_ / 2;
        mostReturned_ = std::max(mostReturned_, keptLines_);
    }
}

void Pool::yieldToPressure() {
    const uint64_t tick = coarseMilliseconds();
    if (tick == yieldTriedAt_) return;
    takeReturned();
    const uint32_t pressure = arena().header().pressure.loadRelaxed();
    // Others were asked at the same moment, and have the lock for a moment each.
    for (int left = attemptsToYield; left != 0; --left) {
        const DomainLock lock(domain_, DomainLock::Patience::tryOnce);
        if (lock.isHeld()) {
            // A few small blocks stay, so that small signals still flow while the lock's holder is stopped.
            shrinkTo(keptLines_ / 64);
            pressureSeen_ = pressure;
            owesRelief_ = false;
            return;
        }
        sched_yield();
    }
    yieldTriedAt_ = tick;
    owesRelief_ = true;
}

/// Gives free blocks to the central lists, the large ones first, until no more than `lines` lines are left. REQUIRES
/// the domain lock.
void Pool::shrinkTo(uint32_t lines) {
    uint32_t left = countLines();
    uint32_t given = 0;
    for (uint32_t c = sizeClassCount; c-- > 0;) {
        const SizeClassId sizeClass{c};
        while (left > lines) {
            const BlockRef block = pop(sizeClass);
            if (!block) break;
            central::disown(*block);
            central::push(arena(), block);
            left -= sizeClasses[sizeClass].lines;
            given += sizeClasses[sizeClass].lines;
        }
    }
    share::remove(slot(), home_, Lines{given});
}

}  // namespace linx
