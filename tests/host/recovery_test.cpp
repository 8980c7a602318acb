#include "tests/host/recovery.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "host/mailbox/doorbell.h"
#include "host/mailbox/wake_state.h"
#include "host/pool/lease.h"
#include "host/recovery/repair.h"
#include "host/recovery/retire.h"
#include "tests/host/interposed.h"
#include "tests/kit/deliver.h"

namespace linx {
namespace {

using linxtest::AnySpid;
using linxtest::KnownEndpoint;
using linxtest::nameOf;

TEST_F(RecoveryTest, WhomManySendsFoundDeadTheSenderReapsSoonAlsoWhereItOnlyPolls) {
    const std::vector<AnySpid> dead = {layDead("first"), layDead("second")};
    live.descriptor();
    {
        const linxtest::interposed::StandingClock standing;
        for (const LinxSpid spid : dead) {
            LinxSignal* signal = linx_alloc(live, 4, 1);
            EXPECT_EQ(linx_send(live, &signal, spid), -1);
            EXPECT_EQ(errno, ECONNRESET);
        }
    }
    EXPECT_FALSE(isOpen(arena, dead[0])) << "by the first send";
    EXPECT_TRUE(isOpen(arena, dead[1])) << "not by the next as well: all of the arena is looked through each time";
    EXPECT_TRUE(live.awaitReadable());
    EXPECT_EQ(receiveNumber(live), 0u);
    EXPECT_FALSE(isOpen(arena, dead[1]));
    EXPECT_FALSE(live.readable());
}

TEST_F(RecoveryTest, AllThatADeadEndpointOwnedGoesToTheCentralLists) {
    const AnySpid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    block(blocks[0]).owner.storeRelaxed(heldBy(dead));
    block(blocks[1]).owner.storeRelaxed(queuedFor(dead));
    reapDead(dead);
    for (const Ref ref : blocks) EXPECT_TRUE(isHomeless(ref));
    expectInOrder();
}

TEST_F(RecoveryTest, TheNameOfADeadEndpointCanBeOpenedAndItsNameStillAskedFor) {
    const AnySpid dead = layDead("dead");
    const KnownEndpoint next("dead");
    EXPECT_NE(next.spid, dead);
    EXPECT_FALSE(isOpen(arena, dead));
    char* name = nullptr;
    ASSERT_EQ(linx_get_name(live, dead, &name), 0);
    EXPECT_STREQ(name, "dead");
    linx_free_name(live, &name);
}

TEST_F(RecoveryTest, MailThatADeadEndpointHadNotTakenGoesToTheCentralListsAndItsMailboxStaysClosed) {
    const AnySpid dead = layDead("dead");
    LinxSignal* signal = linx_alloc(live, 4, 1);
    const Ref ref = refOf(signal);
    const uint32_t before = leasedLines(live.spid);
    post(ref, live.spid, dead);
    reapDead(dead);
    EXPECT_TRUE(isHomeless(ref));
    EXPECT_EQ(leasedLines(live.spid), before - 1);
    EXPECT_EQ(stack::refOf(slotOf(dead).mailbox.loadRelaxed()), stack::closed);
    EXPECT_EQ(stack::refOf(slotOf(dead).returned.loadRelaxed()), stack::closed);
}

TEST_F(RecoveryTest, AChainThatWasBeingTakenIsFoundByItsClaim) {
    const AnySpid dead = layDead("dead");
    const AnySpid sender = layDead("sender");
    const std::vector<Ref> blocks = leaseFor(sender, 100);
    for (size_t i = 0; i < 5; ++i) post(blocks[i], sender, dead);
    Slot& slot = slotOf(dead);
    stack::claimAll(slot.mailbox, slot.mailboxClaim, stack::empty);
    block(blocks[4]).owner.storeRelaxed(queuedFor(dead));  // the first one had been marked already
    post(blocks[5], sender, dead);
    reapDead(dead);
    for (size_t i = 0; i <= 5; ++i) EXPECT_TRUE(isHomeless(blocks[i])) << i;
    EXPECT_EQ(slot.mailboxClaim.loadRelaxed(), Ref::none);
    reapDead(sender);
    expectInOrder();
}

TEST_F(RecoveryTest, AMailboxClosedByAReaperThatDiedIsFinishedByTheNext) {
    const AnySpid dead = layDead("dead");
    const AnySpid sender = layDead("sender");
    const std::vector<Ref> blocks = leaseFor(sender, 100);
    for (size_t i = 0; i < 5; ++i) post(blocks[i], sender, dead);
    Slot& slot = slotOf(dead);
    stack::claimAll(slot.mailbox, slot.mailboxClaim, stack::closed);
    repairAfterDeath();
    reapDead(dead);
    reapDead(sender);
    for (size_t i = 0; i < 5; ++i) EXPECT_TRUE(isHomeless(blocks[i])) << i;
    expectInOrder();
}

TEST_F(RecoveryTest, AReturnedChainThatWasBeingTakenIsFoundByItsClaim) {
    const AnySpid dead = layDead("dead");
    const AnySpid freer = layDead("freer");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    Slot& slot = slotOf(dead);
    for (size_t i = 0; i < 4; ++i) {
        address(blocks[i], freer, dead);
        stack::push(slot.returned, arena.blockAt(blocks[i]));
        if (i == 2) stack::claimAll(slot.returned, slot.returnedClaim, stack::empty);
    }
    block(blocks[2]).owner.storeRelaxed(OwnerWord::free);
    reapDead(dead);
    for (const Ref ref : blocks) EXPECT_TRUE(isHomeless(ref));
    reapDead(freer);
    expectInOrder();
}

TEST_F(RecoveryTest, ASignalThatWasAddressedButNeverPushedIsFoundByItsSendersSlot) {
    const AnySpid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    address(blocks[0], dead, live.spid);
    reapDead(dead);
    EXPECT_TRUE(isHomeless(blocks[0]));
    expectInOrder();
    EXPECT_EQ(receiveNumber(live), 0u);
}

TEST_F(RecoveryTest, ASignalThatWasPushedIsDeliveredThoughItsSenderDiedRightAfter) {
    const AnySpid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    post(blocks[0], dead, live.spid);
    reapDead(dead);
    expectInOrder();
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(live, &signal, 0, anySignal), 4);
    EXPECT_EQ(signal->number, 77u);
    EXPECT_EQ(linx_sender(live, &signal), dead);
    EXPECT_EQ(linx_free_buf(live, &signal), 0);
    expectInOrder();
}

TEST_F(RecoveryTest, WhatManyWhoDieTogetherHadPushedIsDeliveredAndTheRestIsFreed) {
    constexpr uint32_t each = 8;      // signals for each receiver
    constexpr uint32_t unpushed = 3;  // of these the one that was not pushed
    constexpr uint32_t first = 100;
    const KnownEndpoint one("one");
    const KnownEndpoint two("two");
    std::vector<Spid> dead;
    for (uint32_t i = 0; i < 3 * each; ++i) dead.push_back(layDead("dead" + std::to_string(i)));
    std::vector<Ref> blocks = leaseFor(dead[0], 100);
    ASSERT_GE(blocks.size(), dead.size());
    std::sort(blocks.begin(), blocks.end(), std::greater<Ref>());  // the slots rise, the blocks fall
    size_t next = 0;
    for (const AnySpid to : {one.spid, live.spid, two.spid}) {
        for (uint32_t i = 0; i < each; ++i, ++next) {
            if (i == unpushed) {
                address(blocks[next], dead[next], to);
            } else {
                post(blocks[next], dead[next], to);
            }
            block(blocks[next]).signal.number = first + i;
        }
    }
    {
        const DomainLock lock(*joined);
        reap(lock, dead.data(), dead.size());
    }
    expectInOrder();
    for (uint32_t receiver = 0; receiver < 3; ++receiver) EXPECT_TRUE(isHomeless(blocks[receiver * each + unpushed]));
    for (LINX* receiver : std::initializer_list<LINX*>{one, live, two}) {
        for (uint32_t i = 0; i < each; ++i) {
            if (i == unpushed) continue;
            EXPECT_EQ(receiveNumber(receiver), first + i);
        }
        EXPECT_EQ(receiveNumber(receiver), 0u);
    }
    expectInOrder();
}

TEST_F(RecoveryTest, TheReaperRingsForASenderThatDiedBeforeItRang) {
    for (const bool wasNotifying : {false, true}) {
        const AnySpid dead = layDead("dead");
        const std::vector<Ref> blocks = leaseFor(dead, 100);
        post(blocks[0], dead, live.spid);
        Slot& slot = slotOf(live.spid);
        ASSERT_EQ(slot.wakeState.loadRelaxed(), wake_state::word(live.spid, wake_state::parked));
        if (wasNotifying) {
            slot.wakeState.storeRelaxed(wake_state::word(live.spid, wake_state::notifying + numberOf(indexOf(dead))));
        }
        reapDead(dead);
        EXPECT_TRUE(live.readable());
        EXPECT_EQ(receiveNumber(live), 77u);
        EXPECT_EQ(receiveNumber(live), 0u);  // takes out the byte of the reaper's ring
        EXPECT_FALSE(live.readable());
    }
}

TEST_F(RecoveryTest, ABlockOnItsWayHomeButNeverPushedIsFoundByItsFreersSlot) {
    const AnySpid dead = layDead("dead");
    LinxSignal* signal = linx_alloc(live, 4, 1);
    const Ref ref = refOf(signal);
    const uint32_t before = leasedLines(live.spid);
    address(ref, dead, live.spid);
    reapDead(dead);
    EXPECT_TRUE(isHomeless(ref));
    EXPECT_EQ(leasedLines(live.spid), before - 1) << "its home counts it no more";
    expectInOrder();
}

TEST_F(RecoveryTest, ASignalThatWentAstrayBetweenTwoDeadEndpointsIsFoundInEitherOrder) {
    for (const bool senderFirst : {true, false}) {
        const AnySpid sender = layDead("sender");
        const AnySpid receiver = layDead("receiver");
        const std::vector<Ref> blocks = leaseFor(sender, 100);
        address(blocks[0], sender, receiver);
        reapDead(senderFirst ? sender : receiver);
        reapDead(senderFirst ? receiver : sender);
        EXPECT_TRUE(isHomeless(blocks[0])) << senderFirst;
        expectInOrder();
    }
}

TEST_F(RecoveryTest, WhatTheLivingAreAboutToPushIsNotSeizedWithTheDead) {
    const AnySpid dead = layDead("dead");
    LinxSignal* sent = linx_alloc(live, 4, 1);
    const Ref ref = refOf(sent);
    // For its mailbox, or for its returned stack while that is being taken: where it lies does not matter.
    post(leaseFor(dead, 100)[0], dead, dead);
    slotOf(dead).returnedClaim.storeRelaxed(leaseFor(dead, 100)[0]);
    address(ref, live.spid, dead);
    reapDead(dead);
    EXPECT_EQ(block(ref).owner.loadRelaxed(), inFlightTo(dead));
    EXPECT_FALSE(linxtest::deliver(slotOf(dead), arena.blockAt(ref))) << "the sender keeps it";
    block(ref).owner.storeRelaxed(heldBy(live.spid));
    EXPECT_EQ(linx_free_buf(live, &sent), 0);
    expectInOrder();
}

/// Somebody has removed its doorbell, and it counts as dead.
TEST_F(RecoveryTest, AnEndpointThatWasEndedByMistakeSendsItselfNothing) {
    LinxSignal* signal = linx_alloc(live, 4, 1);
    WordOf<LifeWord>& life = slotOf(live.spid).life;
    life.storeRelaxed(closedAs(live.spid));
    EXPECT_EQ(linx_send(live, &signal, live.spid), -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(signal, nullptr);
    life.storeRelaxed(openAs(live.spid));
    EXPECT_EQ(receiveNumber(live), 0u);
    expectInOrder();
}

TEST_F(RecoveryTest, GarbledCentralListsAreMadeAnew) {
    const AnySpid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    reapDead(dead);
    Header& header = arena.header();
    for (WordOf<Ref>& head : header.central) head.storeRelaxed(blocks[5]);
    for (const Ref ref : blocks) block(ref).next.storeRelaxed(blocks[7]);
    repairAfterDeath();
    expectInOrder();
    header.central[anyClass].storeRelaxed(Ref{~0u});
    repairAfterDeath();
    expectInOrder();
}

TEST_F(RecoveryTest, AGarbledCentralListIsNotFollowedEvenBeforeTheRepair) {
    const linxtest::DisorderAllowed allowed;
    const AnySpid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    reapDead(dead);
    block(blocks[0]).owner.storeRelaxed(heldBy(live.spid));
    for (const Ref head : {blocks[0], blocks[0] + 1, Ref{1}, Ref{~0u}}) {
        arena.header().central[anyClass].storeRelaxed(head);
        const DomainLock lock(*joined);
        EXPECT_FALSE(central::pop(arena, anyClass));
    }
    block(blocks[0]).owner.storeRelaxed(OwnerWord::free);
    repairAfterDeath();
}

/// Whoever got it as one of that size would write over its neighbour.
TEST_F(RecoveryTest, ACentralListThatLeadsToASmallerBlockIsNotFollowed) {
    const AnySpid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    reapDead(dead);
    {
        arena.header().central[anyClass + 1].storeRelaxed(blocks[0]);
        const DomainLock lock(*joined);
        EXPECT_FALSE(central::pop(arena, SizeClassId{anyClass + 1}));
    }
    repairAfterDeath();
    expectInOrder();
}

TEST_F(RecoveryTest, ARunWhoseFirstEntryWasNeverWrittenIsFreeAgain) {
    const AnySpid dead = layDead("dead");
    const uint32_t used = arena.header().pagesUsed.loadRelaxed();
    constexpr SizeClassId sizeClass{20};
    const SizeClass& c = sizeClasses[sizeClass];
    arena.header().pagesUsed.storeRelaxed(used + c.pages);
    ASSERT_GT(c.pages, 1u);
    for (uint32_t back = 1; back < c.pages; ++back)
        arena.pageEntry(PageIndex{used + back}).storeRelaxed(makePageEntry(sizeClass, back));
    repairAfterDeath();
    for (uint32_t back = 0; back < c.pages; ++back)
        EXPECT_EQ(arena.pageEntry(PageIndex{used + back}).loadRelaxed(), 0u);
    reapDead(dead);
    expectInOrder();
}

TEST_F(RecoveryTest, ARunThatWasBeingGivenUpIsFreeAgainAndItsBlocksAreInNoStack) {
    const AnySpid dead = layDead("dead");
    std::vector<Ref> blocks;
    {
        const DomainLock lock(*joined);
        blocks = refsOf(lease::fromFreshPages(lock, dead, SizeClassId{20}, 1));
    }
    reapDead(dead);
    const uint32_t first = pageOf(blocks[0]) - arena.filePageOf(PageIndex{0});
    arena.pageEntry(PageIndex{first}).storeRelaxed(0);
    repairAfterDeath();
    expectInOrder();
    for (uint32_t i = 0; i < sizeClasses[20].pages; ++i)
        EXPECT_EQ(arena.pageEntry(PageIndex{first + i}).loadRelaxed(), 0u);
}

TEST_F(RecoveryTest, AFreshRunWhoseLeaserDiedRightAfterGoesToTheCentralLists) {
    const AnySpid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    for (const Ref ref : blocks) EXPECT_EQ(block(ref).home.loadRelaxed(), dead);
    repairAfterDeath();
    reapDead(dead);
    for (const Ref ref : blocks) EXPECT_TRUE(isHomeless(ref));
    expectInOrder();
}

TEST_F(RecoveryTest, ASlotThatWasTakenButNeverOpenedIsInTheOrderAgain) {
    const linxtest::DisorderAllowed allowed;
    SlotIndex index;
    {
        const DomainLock lock(*joined);
        index = takeSlot(arena);
        const ScopedDescriptor ownDoorbell(doorbell::make(joined->directory(), makeSpid(index, 1), 0600));
    }
    Slot& slot = arena.slot(index);
    slot.mailbox.storeRelaxed(stack::headOf(stack::closed));
    slot.returned.storeRelaxed(stack::headOf(stack::closed));
    slot.life.storeRelaxed(closedAs(makeSpid(index, 1)));
    slot.nameHash.storeRelaxed(nameOf("never").hash());
    insertName(arena, index);
    repairAfterDeath();
    expectInOrder();
    EXPECT_EQ(findName(arena, nameOf("never")), Spid::none);
    EXPECT_EQ(domain.leftovers().size(), 1u) << "the doorbell of the live one only";
    EXPECT_EQ(arena.header().quarantineTail.loadRelaxed(), index);
}

TEST_F(RecoveryTest, WhatIsPushedIntoASlotWhoseOpenerDiedJustBeforeItWasOpenIsFound) {
    const AnySpid earlier = layDead("earlier");
    reapDead(earlier);
    const Spid next = makeSpid(indexOf(earlier), generationOf(earlier) + 1);
    Slot& slot = slotOf(next);
    slot.life.storeRelaxed(closedAs(next));
    slot.mailbox.storeRelaxed(stack::headOf(stack::empty));
    slot.returned.storeRelaxed(stack::headOf(stack::empty));
    LinxSignal* signal = linx_alloc(live, 4, 1);
    const Ref ref = refOf(signal);
    post(ref, live.spid, earlier);
    repairAfterDeath();
    reapDead(next);
    EXPECT_TRUE(isHomeless(ref));
    EXPECT_EQ(stack::refOf(slot.mailbox.loadRelaxed()), stack::closed);
    expectInOrder();
}

TEST_F(RecoveryTest, ANameThatWasTakenOutWhileItsEndpointStillCountsAsOpenIsThereAgain) {
    const AnySpid dead = layDead("dead");
    removeName(arena, indexOf(dead));
    repairAfterDeath();
    EXPECT_EQ(findName(arena, nameOf("dead")), dead);
    expectInOrder();
    reapDead(dead);
}

TEST_F(RecoveryTest, AnEndpointThatEndedOutsideTheQuarantineIsInItAgain) {
    const linxtest::DisorderAllowed allowed;
    const AnySpid dead = layDead("dead");
    {
        const DomainLock lock(*joined);
        removeName(arena, indexOf(dead));
        slotOf(dead).life.storeRelaxed(closedAs(dead));
        slotOf(dead).mailbox.storeRelaxed(stack::headOf(stack::closed));
        slotOf(dead).returned.storeRelaxed(stack::headOf(stack::closed));
    }
    repairAfterDeath();
    EXPECT_EQ(arena.header().quarantineTail.loadRelaxed(), indexOf(dead));
    expectInOrder();
}

TEST_F(RecoveryTest, RepairingAndReapingAreSafeToRepeat) {
    const linxtest::DisorderAllowed allowed;
    const Spid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    post(blocks[0], dead, live.spid);
    for (int i = 0; i < 3; ++i) repairAfterDeath();
    reapDead(dead);
    {
        const DomainLock lock(*joined);
        reap(lock, &dead, 1);
        retire(lock, dead, Leftovers::anything);
    }
    for (int i = 0; i < 3; ++i) repairAfterDeath();
    expectInOrder();
    EXPECT_EQ(receiveNumber(live), 77u);
}

TEST_F(RecoveryTest, AReturnMeantForAnEarlierUserOfTheSlotIsAdopted) {
    const Spid earlier = makeSpid(indexOf(live.spid), generationOf(live.spid) - 1);
    const AnySpid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    const Ref stray = blocks[0];
    block(stray).home.storeRelaxed(earlier);
    share::remove(slotOf(dead), dead, linesOfClass(anyClass));
    address(stray, dead, earlier);
    stack::push(slotOf(live.spid).returned, arena.blockAt(stray));
    const uint32_t before = leasedLines(live.spid);
    std::vector<LinxSignal*> signals;
    while (block(stray).owner.loadRelaxed() != OwnerWord::free) signals.push_back(linx_alloc(live, 4, 1));
    EXPECT_EQ(block(stray).home.loadRelaxed(), live.spid);
    EXPECT_GE(leasedLines(live.spid), before + linesOfClass(anyClass));
    for (LinxSignal* signal : signals) linx_free_buf(live, &signal);
    reapDead(dead);
}

TEST_F(RecoveryTest, MailMeantForAnEarlierUserOfTheSlotIsNotDelivered) {
    const Spid earlier = makeSpid(indexOf(live.spid), generationOf(live.spid) - 1);
    const AnySpid dead = layDead("dead");
    const std::vector<Ref> blocks = leaseFor(dead, 100);
    address(blocks[0], dead, earlier);
    linxtest::deliver(slotOf(live.spid), arena.blockAt(blocks[0]));
    EXPECT_EQ(receiveNumber(live), 0u);
    EXPECT_EQ(dropped(live.spid), 1u);
    reapDead(dead);
    expectInOrder();
}

}  // namespace
}  // namespace linx
