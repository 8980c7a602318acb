// Clearing up after the dead takes so many looks as there are blocks, however many have died and whatever waits
// where.

#include "tests/host/recovery.h"

#include <cerrno>

#include "host/arena/hunt_table.h"
#include "tests/cost/looks.h"
#include "tests/host/interposed.h"
#include "tests/kit/child.h"
#include "tests/kit/signals.h"

namespace linx {
namespace {

using cost::looksOf;
using linxtest::KnownEndpoint;

constexpr uint32_t notice = 101;
constexpr uint32_t looksAtBlock = 20;   ///< all that is done with one, in all the walks of a repair
constexpr uint32_t looksInReaping = 4;  ///< the same, where nothing is to be repaired
constexpr uint32_t looksAtHunt = 400;   ///< the same, and all others whom a new one is compared with
constexpr uint32_t looksAtSlot = 400;   ///< the same, its name and those of its bucket included

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
    const KnownEndpoint other("other");
    giveBack(other, other.spid, returned);
    fillMailbox(other, mail);
    EXPECT_LT(looksOf([&] { repairAfterDeath(); }), uint64_t{looksAtBlock} * (returned + mail) + slotCount * 2);
}

TEST_F(RecoveryCost, HuntsThatSomebodyHasGarbledAreNotLookedForInTheMailboxEach) {
    constexpr uint32_t mail = 20000;
    const KnownEndpoint other("other");
    for (uint32_t i = 0; i < huntsOfOne; ++i) ASSERT_EQ(linx_hunt(live, "nobody", nullptr), 0);
    fillMailbox(other, mail);
    std::vector<Ref> signals;
    for (uint32_t i = 0; i < huntsOfOne; ++i) {
        signals.push_back(arena.hunt(i).signal.loadRelaxed());
        block(signals.back()).owner.storeRelaxed(inFlightTo(live.spid));  // as if somebody answered it
        block(signals.back()).sender.storeRelaxed(other.spid);
    }
    EXPECT_LT(looksOf([&] { repairAfterDeath(); }), uint64_t{looksAtBlock} * (huntsOfOne + mail) + slotCount * 2);
    for (const Ref ref : signals) {
        block(ref).owner.storeRelaxed(heldBy(live.spid));
        LinxSignal* signal = &block(ref).signal;
        EXPECT_EQ(linx_free_buf(live, &signal), 0);
    }
}

TEST_F(RecoveryCost, ManyDeadAreReapedInOneWalk) {
    constexpr uint32_t dead = 2000;
    constexpr uint32_t mail = 20000;
    const KnownEndpoint other("other");
    fillMailbox(other, mail);
    std::vector<Spid> all;
    for (uint32_t i = 0; i < dead; ++i) {
        all.push_back(layDead("dead" + std::to_string(i)));
        const std::vector<Ref> refs = leaseFor(all.back());
        address(refs[0], all.back(), live.spid);  // and died before it pushed
        block(refs[1]).owner.storeRelaxed(heldBy(all.back()));
    }
    const uint32_t blocks = arena.usedPages() * linesPerPage;
    const DomainLock lock(*joined);
    EXPECT_LT(looksOf([&] { reap(lock, all.data(), all.size()); }),
              uint64_t{looksAtBlock} * blocks + uint64_t{looksAtSlot} * dead);
    for (const Spid spid : all) EXPECT_FALSE(isOpen(arena, spid));
}

/// Many endpoints that die together, and another that meets them.
class ManyDead : public RecoveryCost {
protected:
    static constexpr uint32_t dead = 40;  // more than are told at once

    void SetUp() override {
        constexpr uint32_t mail = 20000;
        fillMailbox(other, mail);
    }
    void TearDown() override {
        other.close();
        RecoveryCost::TearDown();
    }

    static std::string nameOf(uint32_t number) { return "dead" + std::to_string(number); }

    /// They do `act`, each with its endpoint, and are killed when `meet`, called with the spid of each, has returned.
    template <class Act, class Meet>
    void openAndKill(Act act, Meet meet) {
        Child child([&](Line& parent) {
            std::vector<std::unique_ptr<KnownEndpoint>> endpoints;
            for (uint32_t i = 0; i < dead; ++i) endpoints.push_back(std::make_unique<KnownEndpoint>(nameOf(i)));
            for (const auto& endpoint : endpoints) act(*endpoint);
            for (const auto& endpoint : endpoints) parent.tell(endpoint->spid);
            parent.hear();
        });
        for (uint32_t i = 0; i < dead; ++i) {
            spids.emplace_back(child.hear());
            meet(spids.back());
        }
        child.kill9();
    }
    void openAndKill() {
        openAndKill([](const KnownEndpoint&) {}, [](LinxSpid) {});
    }

    /// As many looks as one walk takes.
    uint64_t oneWalk() const {
        return uint64_t{looksInReaping} * arena.usedPages() * linesPerPage + uint64_t{looksAtSlot} * dead;
    }

    /// Sends to each of them, who have all died.
    void sendToAll() {
        for (const linxtest::AnySpid spid : spids) {
            LinxSignal* signal = linx_alloc(other, 4, 1);
            EXPECT_EQ(linx_send(other, &signal, spid), -1);
            EXPECT_EQ(errno, ECONNRESET);
            EXPECT_EQ(signal, nullptr);
        }
    }
    /// Receives one signal for each of them.
    void receiveAll() {
        for (uint32_t i = 0; i < dead; ++i) EXPECT_EQ(receiveNumber(other), notice);
        receiveNothing();
    }
    void receiveNothing() { EXPECT_EQ(receiveNumber(other), 0u); }

    void expectReaped() { EXPECT_EQ(arena.header().openEndpoints.loadRelaxed(), 2u); }

    KnownEndpoint other{"other"};
    std::vector<linxtest::AnySpid> spids;
};

TEST_F(ManyDead, WhoAreSupervisedAreReapedInOneWalk) {
    openAndKill([](const KnownEndpoint&) {}, [&](LinxSpid spid) { attach(other, spid, notice); });
    const uint64_t most = oneWalk();
    uint32_t first = 0;
    EXPECT_LT(looksOf([&] { first = receiveNumber(other); }), most);
    EXPECT_EQ(first, notice);
    for (uint32_t i = 1; i < dead; ++i) EXPECT_EQ(receiveNumber(other), notice);
    expectReaped();
}

TEST_F(ManyDead, WhoHadJustIntroducedThemselvesAreReapedInOneWalk) {
    openAndKill([&](const KnownEndpoint& sender) { sendNumber(sender, other.spid, notice); }, [](LinxSpid) {});
    const uint64_t most = oneWalk();
    EXPECT_LT(looksOf([&] { receiveAll(); }), most);
    expectReaped();
}

TEST_F(ManyDead, WhoseNamesAreOpenedAgainAreReapedInOneWalk) {
    openAndKill();
    const uint64_t most = oneWalk();
    const linxtest::interposed::StandingClock standing;
    std::vector<std::unique_ptr<KnownEndpoint>> successors;
    const uint64_t opening = looksOf([&] {
        for (uint32_t i = 0; i < dead; ++i) successors.push_back(std::make_unique<KnownEndpoint>(nameOf(i)));
    });
    EXPECT_LT(opening, most);
}

TEST_F(ManyDead, WhomAPeerSendsToAreReapedInTwoWalks) {
    openAndKill([](const KnownEndpoint&) {}, [&](LinxSpid spid) { sendNumber(other, spid, 1); });
    const uint64_t most = 2 * oneWalk();
    const linxtest::interposed::StandingClock standing;
    const uint64_t sending = looksOf([&] { sendToAll(); });
    EXPECT_LT(sending + looksOf([&] { receiveNothing(); }), most);
    expectReaped();
}

TEST_F(ManyDead, WhomAStrangerSendsToAreReapedInTwoWalks) {
    openAndKill();
    const uint64_t most = 2 * oneWalk();
    const linxtest::interposed::StandingClock standing;
    const uint64_t sending = looksOf([&] { sendToAll(); });
    EXPECT_LT(sending + looksOf([&] { receiveNothing(); }), most);
    expectReaped();
}

TEST_F(ManyDead, WhomSomebodyAttachesToAreReapedInTwoWalks) {
    openAndKill();
    const uint64_t most = 2 * oneWalk();
    const linxtest::interposed::StandingClock standing;
    const uint64_t attaching = looksOf([&] {
        for (const linxtest::AnySpid spid : spids) attach(other, spid, notice);
    });
    EXPECT_LT(attaching + looksOf([&] { receiveAll(); }), most);
    expectReaped();
}

TEST_F(ManyDead, WhoAreHuntedAreReapedInOneWalk) {
    openAndKill();
    const uint64_t most = oneWalk() + uint64_t{looksAtHunt} * dead;
    const uint64_t hunting = looksOf([&] {
        for (uint32_t i = 0; i < dead; ++i) EXPECT_EQ(linx_hunt(other, nameOf(i).c_str(), nullptr), 0);
    });
    EXPECT_LT(hunting, most);
    expectReaped();
}

}  // namespace
}  // namespace linx
