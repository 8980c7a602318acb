// A slot that has had an endpoint before, of which somebody still knows.

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "host/arena/slot_table.h"
#include "host/mailbox/doorbell.h"
#include "tests/host/endpoints.h"
#include "tests/host/interposed.h"
#include "tests/host/one_processor.h"
#include "tests/kit/child.h"
#include "tests/kit/failing_new.h"
#include "tests/kit/file_memory.h"
#include "tests/kit/readable.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;
namespace interposed = linxtest::interposed;

constexpr uint32_t awaited = 1;
constexpr uint32_t other = 2;
constexpr uint32_t onlyAwaited[] = {1, awaited};

/// Set before anything is opened, being a base that comes first.
struct SevenSlots {
    static constexpr uint32_t count = 7;
    const linxtest::FewSlots few{count};
};

class UsedSlotTest : private SevenSlots, public linxtest::ArenaDomainTest {
protected:
    static constexpr uint32_t slots = SevenSlots::count;

    void TearDown() override {
        interposed::reset();
        ArenaDomainTest::TearDown();
    }

    /// Opens endpoints until one is in the slot of an ended one.
    static KnownEndpoint openInSlotOf(linxtest::AnySpid ended, const std::string& name = "next") {
        for (uint32_t left = slots; left > 1; --left) {
            KnownEndpoint opened(name);
            if (indexOf(opened.spid) == indexOf(ended)) return opened;
        }
        KnownEndpoint opened(name);
        EXPECT_EQ(indexOf(opened.spid), indexOf(ended));
        return opened;
    }

    /// As one does who is about to send for the first time.
    void introduce(linxtest::AnySpid spid, linxtest::AnySpid to) const {
        const ScopedDescriptor doorbell(doorbell::open(joined->directory(), to));
        EXPECT_TRUE(doorbell::tell(doorbell.get(), spid));
    }

    /// Whoever sleeps is woken, and has missed something.
    static void expectNoSleep(LINX* waker, linxtest::AnySpid sleeper) {
        interposed::atSleep = [waker, sleeper] {
            ADD_FAILURE() << "it sleeps";
            sendNumber(waker, sleeper, awaited);
        };
    }
};

TEST_F(UsedSlotTest, IsNotGivenAwayWhileItIsOpen) {
    std::vector<KnownEndpoint> all;
    for (int round = 0; round < 2; ++round) {
        all.clear();
        for (uint32_t i = 0; i < slots; ++i) all.emplace_back("endpoint" + std::to_string(i));
    }
    const SlotIndex index = indexOf(all[0].spid);
    all[0].close();
    all[0] = KnownEndpoint("again");
    EXPECT_EQ(indexOf(all[0].spid), index);
    EXPECT_EQ(linx_open("one more", 0, nullptr), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}

TEST_F(UsedSlotTest, HasNoShareInWhatItsEarlierUserHasLent) {
    const KnownEndpoint borrower("borrower");
    KnownEndpoint lender("lender");
    sendNumber(lender, borrower.spid, 1, 1000);
    LinxSignal* borrowed = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(borrower, &borrowed, 0, anySignal), 1000);
    const linxtest::AnySpid ended = lender.spid;
    lender.close();
    EXPECT_NE(leasedLines(ended), 0u);
    const KnownEndpoint next = openInSlotOf(ended);
    EXPECT_EQ(linxtest::brokenInvariant(*joined), "");
    linx_free_buf(borrower, &borrowed);
}

TEST_F(UsedSlotTest, CountsForksFromWhereItsEarlierUserEnded) {
    KnownEndpoint first("first");
    const uint32_t round = slotOf(first.spid).forkRound.loadRelaxed();
    const linxtest::AnySpid ended = first.spid;
    first.close();
    const KnownEndpoint next = openInSlotOf(ended);
    EXPECT_NE(slotOf(next.spid).forkRound.loadRelaxed(), round);
}

TEST_F(UsedSlotTest, IsNotTakenOverByAForkedCopyOfItsEarlierUser) {
    for (const bool sameRound : {false, true}) {
        KnownEndpoint first("first");
        const linxtest::AnySpid ended = first.spid;
        const uint32_t round = slotOf(ended).forkRound.loadRelaxed();
        Child child([&](Line& parent) {
            LinxSignal* signal = nullptr;
            parent.hear();
            EXPECT_EQ(linx_receive_w_tmo(first, &signal, 0, anySignal), -1);
            EXPECT_EQ(errno, ECHILD);
            EXPECT_EQ(linx_close(first), -1);
            EXPECT_EQ(errno, ECHILD);
        });
        first.close();
        const KnownEndpoint next = openInSlotOf(ended);
        if (sameRound) slotOf(next.spid).forkRound.storeRelaxed(round);  // as after very many users
        for (uint32_t number = 1; number <= 5; ++number) sendNumber(next, next.spid, number);
        const KnownEndpoint sender("sender");
        for (uint32_t number = 6; number <= 10; ++number) sendNumber(sender, next.spid, number);
        child.tell();
        EXPECT_EQ(child.exitStatus(), 0);
        for (uint32_t number = 1; number <= 10; ++number) EXPECT_EQ(receiveNumber(next), number);
    }
}

TEST_F(UsedSlotTest, GetsNothingThatIsSentToItsEarlierUser) {
    const KnownEndpoint sender("sender");
    KnownEndpoint peer("peer");
    const linxtest::AnySpid ended = peer.spid;
    sendNumber(sender, ended, 1);
    EXPECT_EQ(receiveNumber(peer), 1u);
    peer.close();
    const KnownEndpoint next = openInSlotOf(ended);
    for (int i = 0; i < 2; ++i) {
        LinxSignal* signal = linx_alloc(sender, 4, 2);
        EXPECT_EQ(linx_send(sender, &signal, ended), -1);
        EXPECT_EQ(errno, ECONNRESET);
    }
    EXPECT_EQ(receiveNumber(next), 0u);
    EXPECT_EQ(dropped(next.spid), 0u);
}

TEST_F(UsedSlotTest, TellsTheSupervisorOfItsEarlierUserWhoSendsToItsNext) {
    const KnownEndpoint supervisor("supervisor");
    KnownEndpoint supervised("supervised");
    const linxtest::AnySpid ended = supervised.spid;
    LinxSignal* notice = linx_alloc(supervisor, 4, 9);
    ASSERT_NE(linx_attach(supervisor, &notice, ended), 0u);
    supervised.close();
    const KnownEndpoint next = openInSlotOf(ended);
    sendNumber(supervisor, next.spid, 1);
    EXPECT_EQ(receiveNumber(next), 1u);
    ASSERT_EQ(linx_receive_w_tmo(supervisor, &notice, 0, anySignal), 4);
    EXPECT_EQ(notice->number, 9u);
    EXPECT_EQ(linx_sender(supervisor, &notice), ended);
    linx_free_buf(supervisor, &notice);
}

TEST_F(UsedSlotTest, LivesOnWhenItsEarlierUserIsIntroducedTooLate) {
    const KnownEndpoint supervisor("supervisor");
    const ScopedDescriptor descriptor(linx_get_descriptor(supervisor));
    KnownEndpoint before("before");
    const linxtest::AnySpid ended = before.spid;
    before.close();
    KnownEndpoint next = openInSlotOf(ended);
    LinxSignal* notice = linx_alloc(supervisor, 4, 9);
    ASSERT_NE(linx_attach(supervisor, &notice, next.spid), 0u);
    introduce(ended, supervisor.spid);
    ASSERT_TRUE(isReadable(descriptor.get()));
    EXPECT_EQ(receiveNumber(supervisor), 0u);
    EXPECT_FALSE(isReadable(descriptor.get())) << "the introduction is to be read, and nothing to come of it";
    sendNumber(supervisor, next.spid, 1);
    EXPECT_EQ(receiveNumber(next), 1u);
    sendNumber(next, supervisor.spid, 2);
    EXPECT_EQ(receiveNumber(supervisor), 2u);
    next.close();
    EXPECT_EQ(receiveNumber(supervisor), 9u);
}

TEST_F(UsedSlotTest, IsNotSleptOverWhenItsNextUserBringsTheNewsOfTheEnd) {
    const interposed::StandingClock clock;  // so that ends are not looked for again in this tick
    const linxtest::ScopedVariable looking("LINX_SPIN_US", "0");
    const KnownEndpoint sender("sender");
    const KnownEndpoint supervisor("supervisor");
    KnownEndpoint supervised("supervised");
    const linxtest::AnySpid ended = supervised.spid;
    LinxSignal* notice = linx_alloc(supervisor, 4, awaited);
    ASSERT_NE(linx_attach(supervisor, &notice, ended), 0u);
    sendNumber(sender, supervisor.spid, other);
    ASSERT_EQ(linx_receive_w_tmo(supervisor, &notice, 0, onlyAwaited),
              0);  // the other one keeps its doorbell ringing
    supervised.close();
    const KnownEndpoint next = openInSlotOf(ended);
    introduce(next.spid, supervisor.spid);

    expectNoSleep(sender, supervisor.spid);
    ASSERT_EQ(linx_receive(supervisor, &notice, onlyAwaited), 4);
    EXPECT_EQ(linx_sender(supervisor, &notice), ended);
    interposed::reset();
    linx_free_buf(supervisor, &notice);
    EXPECT_EQ(receiveNumber(supervisor), other);
}

TEST_F(UsedSlotTest, IsNotSleptOverWhenMemoryRunsOutAmidTheIntroductionOfItsNextUser) {
    constexpr uint32_t many = 100;
    const linxtest::OneProcessor processor;
    const linxtest::ScopedVariable looking("LINX_SPIN_US", "1000");
    const KnownEndpoint sender("sender");
    const KnownEndpoint receiver("receiver");
    const KnownEndpoint peer("peer");
    sendNumber(receiver, peer.spid, other);
    EXPECT_EQ(receiveNumber(peer), other);
    sendNumber(sender, receiver.spid, other);
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(receiver, &signal, 0, onlyAwaited), 0);  // the other one keeps its doorbell ringing
    // Somebody removes the peer's doorbell, so that it counts as dead though it holds the doorbell open.
    ASSERT_EQ(unlink(doorbellOf(peer.spid).c_str()), 0);
    const KnownEndpoint next = openInSlotOf(peer.spid, "peer");
    introduce(next.spid, receiver.spid);

    // Between its last look and its sleep.
    interposed::atYield = [&] {
        interposed::atClock = [&, sent = false]() mutable {
            if (std::exchange(sent, true)) return;
            for (uint32_t i = 0; i < many; ++i) sendNumber(sender, receiver.spid, awaited);
            linxtest::newThatFails = 1;
        };
    };
    expectNoSleep(sender, receiver.spid);
    ASSERT_EQ(linx_receive(receiver, &signal, onlyAwaited), 4);
    EXPECT_EQ(linxtest::newThatFails, 0u);
    interposed::reset();
    linx_free_buf(receiver, &signal);
    EXPECT_EQ(receiveNumber(receiver), other);
    for (uint32_t i = 1; i < many; ++i) EXPECT_EQ(receiveNumber(receiver), awaited);
    EXPECT_EQ(receiveNumber(receiver), 0u);
}

TEST_F(UsedSlotTest, KeepsTheNameOfItsEarlierUserUntilTheNextIsOpen) {
    const KnownEndpoint asker("asker");
    std::vector<KnownEndpoint> others;
    for (uint32_t i = 2; i < slots; ++i) others.emplace_back("other" + std::to_string(i));
    KnownEndpoint first("first");
    const linxtest::AnySpid ended = first.spid;
    first.close();
    // Nobody can make a doorbell where there is a directory.
    const std::string inTheWay = doorbellOf(numberOf(makeSpid(indexOf(ended), generationOf(ended) + 1)));
    ASSERT_EQ(mkdir(inTheWay.c_str(), 0700), 0);
    EXPECT_EQ(linx_open("next", 0, nullptr), nullptr);
    char* name = nullptr;
    ASSERT_EQ(linx_get_name(asker, ended, &name), 0);
    EXPECT_STREQ(name, "first");
    linx_free_name(asker, &name);
    ASSERT_EQ(rmdir(inTheWay.c_str()), 0);
    const KnownEndpoint next("next");
    EXPECT_EQ(next.spid, makeSpid(indexOf(ended), generationOf(ended) + 1));
}

/// Attaching to the next user of a slot finds that the one before has ended.
TEST_F(UsedSlotTest, TheEndThatAFailedAttachMeetsIsStillTold) {
    const KnownEndpoint supervisor("supervisor");
    const ScopedDescriptor descriptor(linx_get_descriptor(supervisor));
    LinxRef attached = 0;
    for (unsigned n = 1; attached == 0; ++n) {
        ASSERT_LT(n, 100u);
        linxtest::AnySpid ended;
        {
            const KnownEndpoint before("before");
            ended = before.spid;
            LinxSignal* notice = linx_alloc(supervisor, 4, awaited);
            ASSERT_NE(linx_attach(supervisor, &notice, ended), 0u);
        }
        const KnownEndpoint next = openInSlotOf(ended);
        LinxSignal* notice = linx_alloc(supervisor, 4, other);
        linxtest::newThatFails = n;
        attached = linx_attach(supervisor, &notice, next.spid);
        linxtest::newThatFails = 0;
        EXPECT_TRUE(isReadable(descriptor.get())) << "new " << n;
        EXPECT_EQ(receiveNumber(supervisor), awaited) << "new " << n;
    }
    EXPECT_EQ(receiveNumber(supervisor), other);
}

}  // namespace
}  // namespace linx
