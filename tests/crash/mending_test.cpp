// Deaths of who mends or leases, at every place where it changes shared memory, and what the next makes of it.

#include <csignal>
#include <cstring>

#include "host/recovery/repair.h"
#include "tests/crash/site.h"
#include "tests/host/answering.h"
#include "tests/kit/child.h"
#include "tests/kit/small_arena.h"

namespace linx {
namespace {

/// Does it in a process that is killed at the place. False when it did not come so far.
template <class Work>
bool dieAt(uint32_t site, Work work) {
    Child child([&](Line&) {
        std::atomic<uint32_t> ignored{0};
        crash::arm(site, crash::End::kill, ignored);
        work();
        _exit(0);
    });
    return child.exitStatus() == -SIGKILL;
}

using MendingTest = AnsweringTest;

TEST_F(MendingTest, ADeathInItLeavesAHuntThatWasBeingAnsweredPending) {
    // The order of the names comes after the hunts, and is made anew in many places that are all alike.
    uint32_t site = 1;
    bool isBehindHunts = false;
    while (!isBehindHunts && !HasFailure()) {
        SCOPED_TRACE(site);
        begin();
        tell();
        arena.header().dirty.storeRelaxed(1);
        arena.bucket(0).storeRelaxed(indexOf(opener));
        ASSERT_TRUE(dieAt(site++, [this] { const DomainLock lock(*joined); }));
        isBehindHunts = arena.bucket(0).loadRelaxed() != indexOf(opener);
        expectPendingAgain();
    }
    EXPECT_GT(site, 10u);
    expectStillPending();
}

class LeasingTest : private linxtest::SmallArena, public RecoveryTest {};

TEST_F(LeasingTest, ADeathInItLosesNothingWhateverLiesInThePages) {
    constexpr uint32_t gap = 2;
    const SizeClass& c = sizeClasses[anyClass];
    const uint32_t first = arena.header().pagesUsed.loadRelaxed();
    // Leased before, all of it, and free again; but for what the endpoint has.
    arena.header().pagesUsed.storeRelaxed(arena.pageCount());
    bool died = true;
    for (uint32_t site = 1; died && !HasFailure(); ++site) {
        SCOPED_TRACE(site);
        ASSERT_TRUE(arena.providePage(PageIndex{first + gap}));
        std::memset(static_cast<void*>(arena.rawBlock(arena.refOfPage(PageIndex{first}))), 0x5a, gap * pageBytes);
        const Spid dead = layDead("dead");
        died = dieAt(site, [&] {
            const DomainLock lock(*joined);
            lease::fromFreshPages(lock, dead, anyClass, c.blocks);
        });
        repairAfterDeath();
        reapDead(dead);
        expectInOrder();
        for (uint32_t page = 0; page < c.pages; ++page) arena.pageEntry(PageIndex{first + page}).storeRelaxed(0);
        repairAfterDeath();
    }
}

}  // namespace
}  // namespace linx
