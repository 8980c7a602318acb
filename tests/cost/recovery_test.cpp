// Clearing up after the dead takes so many looks as there are blocks, however many have died and whatever waits
// where.

#include "tests/host/recovery.h"

#include "host/arena/hunt_table.h"
#include "tests/cost/looks.h"
#include "tests/processes/support/child.h"
#include "tests/processes/support/signals.h"

namespace linx {
namespace {

using cost::looksOf;
using linxtest::anySignal;
using linxtest::Linx;

constexpr uint32_t notice = 101;
constexpr uint32_t looksAtBlock = 20;  ///< all that is done with one, in all the walks of a repair
constexpr uint32_t looksAtSlot = 400;  ///< the same, its name and those of its bucket included

class RecoveryCost : public RecoveryTest {
protected:
    /// Has `count` small signals wait in the mailbox of the live endpoint.
    void fillMailbox(LINX* sender, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) sendNumber(sender, live.spid, 1);
    }

    /// Has the live endpoint's blocks wait to be come for.
    void giveBack(LINX* giver, LinxSpid spid, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) sendNumber(live, spid, 1);
        for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(receiveNumber(giver), 1u);
    }
};

TEST_F(RecoveryCost, ARepairLooksAtEachBlockAFewTimes) {
    constexpr uint32_t returned = 10000;
    constexpr uint32_t mail = 20000;
    const Linx other("other");
    giveBack(other, other.spid, returned);
    fillMailbox(other, mail);
    EXPECT_LT(looksOf([&] { repairAfterDeath(); }), uint64_t{looksAtBlock} * (returned + mail) + slotCount * 2);
}

TEST_F(RecoveryCost, HuntsThatSomebodyHasGarbledAreNotLookedForInTheMailboxEach) {
    constexpr uint32_t mail = 20000;
    const Linx other("other");
    for (uint32_t i = 0; i < huntsOfOne; ++i) ASSERT_EQ(linx_hunt(live, "nobody", nullptr), 0);
    fillMailbox(other, mail);
    std::vector<Ref> signals;
    for (uint32_t i = 0; i < huntsOfOne; ++i) {
        signals.push_back(arena.hunt(i).signal.loadRelaxed());
        block(signals.back()).owner.storeRelaxed(live.spid | ownerInFlight);  // as if somebody answered it
        block(signals.back()).sender.storeRelaxed(other.spid);
    }
    EXPECT_LT(looksOf([&] { repairAfterDeath(); }), uint64_t{looksAtBlock} * (huntsOfOne + mail) + slotCount * 2);
    for (const Ref ref : signals) {
        block(ref).owner.storeRelaxed(live.spid);
        LinxSignal* signal = &block(ref).signal;
        EXPECT_EQ(linx_free_buf(live, &signal), 0);
    }
}

TEST_F(RecoveryCost, ManyDeadAreReapedInOneWalk) {
    constexpr uint32_t dead = 2000;
    constexpr uint32_t mail = 20000;
    const Linx other("other");
    fillMailbox(other, mail);
    std::vector<Spid> all;
    for (uint32_t i = 0; i < dead; ++i) {
        all.push_back(layDead("dead" + std::to_string(i)));
        const std::vector<Ref> refs = leaseFor(all.back());
        address(refs[0], all.back(), live.spid);  // and died before it pushed
        block(refs[1]).owner.storeRelaxed(all.back());
    }
    const uint32_t blocks = arena.usedPages() * linesPerPage;
    const DomainLock lock(*joined);
    EXPECT_LT(looksOf([&] { reap(lock, all.data(), all.size()); }),
              uint64_t{looksAtBlock} * blocks + uint64_t{looksAtSlot} * dead);
    for (const Spid spid : all) EXPECT_FALSE(isOpen(arena, spid));
}

TEST_F(RecoveryCost, PeersThatDieTogetherAreReapedInOneWalk) {
    constexpr uint32_t dead = 40;  // more than are told at once
    constexpr uint32_t mail = 20000;
    const Linx other("other");
    fillMailbox(other, mail);
    Child child([](Line& parent) {
        std::vector<std::unique_ptr<Linx>> endpoints;
        for (uint32_t i = 0; i < dead; ++i) endpoints.push_back(std::make_unique<Linx>("dead" + std::to_string(i)));
        for (const auto& endpoint : endpoints) parent.tell(endpoint->spid);
        parent.hear();
    });
    for (uint32_t i = 0; i < dead; ++i) attach(other, child.hear(), notice);
    child.kill9();
    const uint32_t blocks = arena.usedPages() * linesPerPage;
    uint32_t first = 0;
    EXPECT_LT(looksOf([&] { first = receiveNumber(other); }),
              uint64_t{looksAtBlock} * blocks + uint64_t{looksAtSlot} * dead);
    EXPECT_EQ(first, notice);
    for (uint32_t i = 1; i < dead; ++i) EXPECT_EQ(receiveNumber(other), notice);
    EXPECT_EQ(arena.header().openEndpoints.loadRelaxed(), 2u);
}

}  // namespace
}  // namespace linx
