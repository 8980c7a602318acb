#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "host/arena/hunt_table.h"
#include "tests/host/answering.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;
using linxtest::nameOf;

TEST_F(AnsweringTest, AHuntThatNobodyBeganToAnswerStaysPending) {
    expectStillPending();
}

TEST_F(AnsweringTest, AHuntWhoseSignalWasAddressedButNotPushedIsPendingAgain) {
    begin();
    expectStillPending();
}

TEST_F(AnsweringTest, AHuntWhoseSignalWasAboutToBePushedIsPendingAgain) {
    begin();
    tell();
    expectStillPending();
}

/// The hunter has received the answer, and sent the same block to somebody who is sending it back.
TEST_F(AnsweringTest, AnAnswerThatComesBackAsAnotherSignalIsNoPendingHunt) {
    const KnownEndpoint other("other");
    tell();
    slotOf(other.spid).sending.storeRelaxed(signal);
    block(signal).sender.storeRelaxed(other.spid);
    begin();
    block(signal).signal.number = 77;
    repairAfterDeath();
    push();
    EXPECT_EQ(receiveNumber(live), 77u);
    EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 0u);
    reapDead(opener);
}

TEST_F(AnsweringTest, AGarbledSenderOfAnAnswerIsNotLookedForInASlotThatWasNeverUsed) {
    begin();
    block(signal).sender.storeRelaxed(makeSpid(SlotIndex{8000}, 1));
    const uint64_t before = domain.arenaBytes();
    expectPendingAgain();
    EXPECT_EQ(domain.arenaBytes(), before) << "on a full file system there is no memory for a look";
    reapDead(opener);
}

TEST_F(AnsweringTest, ARepairerThatDiesInBetweenLeavesTheHuntPending) {
    begin();
    tell();
    hunt().hunter.storeRelaxed(huntedBy(live.spid));
    expectStillPending();
}

TEST_F(AnsweringTest, AHuntWhoseSignalLiesInTheMailboxIsAnswered) {
    begin();
    tell();
    push();
    expectAnswered();
}

TEST_F(AnsweringTest, AHuntWhoseSignalTheHunterHasQueuedIsAnswered) {
    begin();
    tell();
    push();
    LinxSignal* none = nullptr;
    const uint32_t another[] = {1, 12345};
    ASSERT_EQ(linx_receive_w_tmo(live, &none, 0, another), 0);
    ASSERT_EQ(block(signal).owner.loadRelaxed(), queuedFor(live.spid));
    expectAnswered();
}

TEST_F(AnsweringTest, AHuntWhoseSignalTheHunterHasParkedForSomethingElseIsAnswered) {
    begin();
    tell();
    push();
    LinxSignal* received = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(live, &received, 0, anySignal), 4);
    LinxRef reference = linx_request_tmo(live, 100000000, &received);
    ASSERT_EQ(block(signal).owner.loadRelaxed(), queuedFor(live.spid));
    repairAfterDeath();
    reapDead(opener);
    EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 0u);
    const KnownEndpoint sought("sought");
    EXPECT_EQ(receiveNumber(live), 0u);
    EXPECT_EQ(linx_cancel_tmo(live, &reference), 0);
}

TEST_F(RecoveryTest, AHuntForADeadOneThatCannotBeReapedIsKept) {
    const linxtest::DisorderAllowed allowed;
    const linxtest::AnySpid dead = layDead("dead");
    slotOf(dead).life.storeRelaxed(LifeWord{LinxSpid{dead} | 3u << 30});  // no spid has this bit
    EXPECT_EQ(linx_hunt(live, "dead", nullptr), 0);
    EXPECT_EQ(receiveNumber(live), 0u);
    slotOf(dead).life.storeRelaxed(openAs(dead));
    reapDead(dead);
}

TEST_F(AnsweringTest, AHuntWhoseSignalIsNoBlockIsCleared) {
    hunt().signal.storeRelaxed(arena.refOfPage(PageIndex{0}) + ~0u);
    const KnownEndpoint sought("sought");
    EXPECT_EQ(hunt().hunter.loadRelaxed(), HunterWord::none);
    EXPECT_EQ(receiveNumber(live), 0u);
    block(signal).owner.storeRelaxed(heldBy(live.spid));
    LinxSignal* lost = &block(signal).signal;
    EXPECT_EQ(linx_free_buf(live, &lost), 0);
    reapDead(opener);
}

TEST_F(AnsweringTest, AHuntWhoseSignalSomebodyHoldsIsCleared) {
    LinxSignal* held = linx_alloc(live, 4, 1);
    hunt().signal.storeRelaxed(refOf(held));
    const KnownEndpoint sought("sought");
    EXPECT_EQ(hunt().hunter.loadRelaxed(), HunterWord::none);
    EXPECT_EQ(receiveNumber(live), 0u);
    EXPECT_EQ(linx_free_buf(live, &held), 0);
    block(signal).owner.storeRelaxed(heldBy(live.spid));
    LinxSignal* lost = &block(signal).signal;
    EXPECT_EQ(linx_free_buf(live, &lost), 0);
    reapDead(opener);
}

TEST_F(AnsweringTest, AHuntOfAnEarlierUserOfTheSlotIsNotAnswered) {
    const Spid earlier = makeSpid(indexOf(live.spid), generationOf(live.spid) - 1);
    hunt().hunter.storeRelaxed(huntedBy(earlier));
    block(signal).owner.storeRelaxed(queuedFor(earlier));
    const KnownEndpoint sought("sought");
    EXPECT_EQ(hunt().hunter.loadRelaxed(), HunterWord::none);
    EXPECT_EQ(receiveNumber(live), 0u);
    EXPECT_EQ(dropped(live.spid), 0u);
    EXPECT_EQ(block(signal).owner.loadRelaxed(), queuedFor(earlier));
    block(signal).owner.storeRelaxed(heldBy(live.spid));
    LinxSignal* lost = &block(signal).signal;
    EXPECT_EQ(linx_free_buf(live, &lost), 0);
    reapDead(opener);
}

TEST_F(AnsweringTest, AHuntOfOneWhoseReaperDiedIsNotAnsweredIntoNothing) {
    const linxtest::AnySpid hunter = layDead("hunter");
    const std::vector<Ref> blocks = leaseFor(hunter, 100);
    block(blocks[0]).owner.storeRelaxed(queuedFor(hunter));
    {
        const DomainLock lock(*joined);
        ASSERT_EQ(addHunt(arena, hunter, nameOf("wanted"), blocks[0]), 0);
    }
    Slot& slot = slotOf(hunter);
    stack::claimAll(slot.mailbox, slot.mailboxClaim, stack::closed);
    repairAfterDeath();
    const KnownEndpoint wanted("wanted");
    reapDead(hunter);
    EXPECT_TRUE(isHomeless(blocks[0]));
    reapDead(opener);
    expectInOrder();
}

TEST_F(AnsweringTest, AHuntOfOneWhoHasEndedIsDropped) {
    const linxtest::AnySpid hunter = layDead("hunter");
    const std::vector<Ref> blocks = leaseFor(hunter, 100);
    block(blocks[0]).owner.storeRelaxed(queuedFor(hunter));
    {
        const DomainLock lock(*joined);
        ASSERT_EQ(addHunt(arena, hunter, nameOf("sought"), blocks[0]), 0);
    }
    reapDead(hunter);
    reapDead(opener);
    EXPECT_TRUE(isHomeless(blocks[0]));
    expectInOrder();
}

/// As one whose user waits on nothing but its descriptor.
TEST_F(RecoveryTest, AnAnswerThatIsOwedCallsWhoeverOpenedTheName) {
    EXPECT_EQ(linx_hunt(live, "sought", nullptr), 0);
    const std::string doorbell = doorbellOf(live.spid);
    const std::string aside = doorbell + ".aside";
    ASSERT_EQ(rename(doorbell.c_str(), aside.c_str()), 0);
    ASSERT_EQ(close(creat(doorbell.c_str(), 0600)), 0);
    KnownEndpoint sought("sought");
    ASSERT_EQ(rename(aside.c_str(), doorbell.c_str()), 0);
    EXPECT_EQ(receiveNumber(live), 0u);
    EXPECT_TRUE(sought.awaitReadable()) << "nothing else wakes it";
    EXPECT_EQ(receiveNumber(sought), 0u);
    EXPECT_EQ(receiveNumber(live), static_cast<uint32_t>(LINX_OS_HUNT_SIG));
}

/// As one that receives nothing, and has no descriptor that anybody watches.
TEST_F(RecoveryTest, AnAnswerThatIsOwedIsGivenWithAnyOperation) {
    EXPECT_EQ(linx_hunt(live, "sought", nullptr), 0);
    const std::string doorbell = doorbellOf(live.spid);
    const std::string aside = doorbell + ".aside";
    ASSERT_EQ(rename(doorbell.c_str(), aside.c_str()), 0);
    ASSERT_EQ(close(creat(doorbell.c_str(), 0600)), 0);
    LINX* sought = linx_open("sought", 0, nullptr);
    ASSERT_EQ(rename(aside.c_str(), doorbell.c_str()), 0);
    EXPECT_EQ(receiveNumber(live), 0u);
    LinxSignal* signal = linx_alloc(sought, 4, 1);
    EXPECT_EQ(receiveNumber(live), static_cast<uint32_t>(LINX_OS_HUNT_SIG));
    EXPECT_EQ(linx_free_buf(sought, &signal), 0);
    EXPECT_EQ(linx_close(sought), 0);
}

/// Somebody has removed its doorbell, and it counts as ended though it lives.
TEST_F(RecoveryTest, WhoCountsAsEndedReceivesNothingThatHasBecomeAnothers) {
    KnownEndpoint zombie("zombie");
    for (uint32_t number = 1; number <= 8; ++number) sendNumber(zombie, zombie.spid, number);
    ASSERT_EQ(receiveNumber(zombie), 1u);
    ASSERT_EQ(unlink(doorbellOf(zombie.spid).c_str()), 0);
    const KnownEndpoint another("zombie");
    std::vector<LinxSignal*> signals(100);
    for (LinxSignal*& signal : signals) signal = linx_alloc(another, 4, 5);
    LinxSignal* received = nullptr;
    EXPECT_EQ(linx_receive(zombie, &received, anySignal), -1);
    EXPECT_EQ(errno, ECONNABORTED);
    for (LinxSignal*& signal : signals) EXPECT_EQ(linx_free_buf(another, &signal), 0);
    zombie.close();
}

TEST_F(RecoveryTest, WhoCountsAsEndedLeasesAndHuntsNoMore) {
    KnownEndpoint zombie("zombie");
    ASSERT_EQ(unlink(doorbellOf(zombie.spid).c_str()), 0);
    const KnownEndpoint another("zombie");
    errno = 0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(linx_alloc(zombie, 60000, 1), nullptr);
        EXPECT_EQ(errno, ECONNABORTED);
        EXPECT_EQ(linx_hunt(zombie, "absent", nullptr), -1);
        EXPECT_EQ(errno, ECONNABORTED);
    }
    EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 0u);
    zombie.close();
    expectInOrder();
}

}  // namespace
}  // namespace linx
