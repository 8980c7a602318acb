// What a death, a failure or a fork at the wrong instant once left behind.

#include <sched.h>

#include <cerrno>
#include <csignal>

#include "host/arena/arena_file.h"
#include "host/arena/central_lists.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "host/recovery/domain_lock.h"
#include "host/recovery/in_flight.h"
#include "tests/host/endpoints.h"
#include "tests/host/interposed.h"
#include "tests/kit/child.h"
#include "tests/kit/deliver.h"

namespace linx {
namespace {

namespace interposed = linxtest::interposed;

using linxtest::KnownEndpoint;

using GapsTest = linxtest::ArenaDomainTest;

TEST_F(GapsTest, AReceiverIsWokenByTheEndOfASenderThatDiedBeforeItRang) {
    KnownEndpoint receiver("receiver");
    const Word& sleeps = slotOf(receiver.spid).sleeps;
    Child child([&](Line& parent) {
        LINX* sender = linx_open("sender", 0, nullptr);
        LinxSignal* first = linx_alloc(sender, 4, 1);
        linx_send(sender, &first, receiver.spid);
        const uint32_t before = parent.hear();
        while (sleeps.loadAcquire() == before) sched_yield();
        // As linx_send does, up to the push and no further.
        Block& block = *blockOf(linx_alloc(sender, 4, 2));
        const Ref ref = arena.refOf(&block);
        slotOf(block.sender.loadRelaxed()).sending.storeRelaxed(ref);
        block.owner.storeRelease(inFlightTo(receiver.spid));
        linxtest::deliver(slotOf(receiver.spid), arena.blockAt(ref));
        raise(SIGKILL);
    });
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(receiver, &signal, patience, anySignal), 4);
    linx_free_buf(receiver, &signal);
    child.tell(sleeps.loadRelaxed());
    ASSERT_EQ(linx_receive_w_tmo(receiver, &signal, patience, anySignal), 4);
    EXPECT_EQ(signal->number, 2u);
    linx_free_buf(receiver, &signal);
    EXPECT_EQ(child.exitStatus(), -SIGKILL);
    EXPECT_EQ(receiveNumber(receiver), 0u);  // has noticed the end, if it had not before
}

TEST_F(GapsTest, ADoorbellThatCouldNotBeRungIsRungByTheNextSender) {
    constexpr Spid receiver = makeSpid(SlotIndex{5}, 1);
    Slot slot{};
    slot.wakeState.storeRelaxed(wake_state::word(receiver, wake_state::parked));
    EXPECT_EQ(wake_state::ringIfAsked(slot, receiver, SlotIndex{3}, [] { return EMFILE; }), EMFILE);
    EXPECT_TRUE(wake_state::wantsRing(slot.wakeState.loadRelaxed(), receiver));
}

TEST_F(GapsTest, ASpidThatWasNeverUsedIsToldWithoutTouchingItsSlot) {
    KnownEndpoint endpoint("endpoint");
    const uint64_t before = domain.arenaBytes();
    const LinxSpid never = numberOf(makeSpid(SlotIndex{8000}, 1));
    char* name = nullptr;
    EXPECT_EQ(linx_get_name(endpoint, never, &name), -1);
    EXPECT_EQ(errno, ESRCH);
    LinxSignal* signal = linx_alloc(endpoint, 4, 1);
    EXPECT_EQ(linx_send(endpoint, &signal, never), -1);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(domain.arenaBytes(), before);
}

TEST_F(GapsTest, MemoryThatCannotBeReservedIsToldByErrno) {
    errno = ENOENT;
    EXPECT_FALSE(reservePages(-1, 0, 1));
    EXPECT_EQ(errno, EBADF);
}

TEST_F(GapsTest, InterruptionsLeaveNoPageWithoutMemory) {
    constexpr uint32_t first = 3;
    constexpr uint32_t count = 1000;
    int64_t end = int64_t{first} * pageBytes;
    int calls = 0;
    interposed::atReserve = [&](int64_t offset, int64_t bytes) {
        if (++calls % 3 != 0) return EINTR;
        EXPECT_EQ(offset, end);
        end += bytes;
        return 0;
    };
    EXPECT_TRUE(reservePages(joined->lock().file(), first, count));
    interposed::reset();
    EXPECT_EQ(end, int64_t{first + count} * pageBytes);
}

TEST_F(GapsTest, ATimeoutComesAfterWhatWasSentBeforeItFellDue) {
    KnownEndpoint receiver("receiver");
    KnownEndpoint sender("sender");
    sendNumber(sender, receiver.spid, 7);
    ASSERT_NE(linx_request_tmo(receiver, 0, nullptr), 0u);
    EXPECT_EQ(receiveNumber(receiver), 7u);
    EXPECT_EQ(receiveNumber(receiver), static_cast<uint32_t>(LINX_OS_TIMEOUT_SIG));
}

TEST_F(GapsTest, AChildThatClosesWhatItInheritedLeavesTheEndpointToItsParent) {
    KnownEndpoint endpoint("endpoint");
    Child child([&](Line&) {
        EXPECT_EQ(linx_close(endpoint), 0);
        EXPECT_EQ(linx_close(endpoint), -1);
        EXPECT_EQ(errno, EINVAL);
    });
    EXPECT_EQ(child.exitStatus(), 0);
    EXPECT_TRUE(isOpen(arena, endpoint.spid));
    sendNumber(endpoint, endpoint.spid, 9);
    EXPECT_EQ(receiveNumber(endpoint), 9u);
}

TEST_F(GapsTest, WhereTheLocksFileCannotBeAskedForItsStateNothingIsDoneUnderTheLock) {
    const KnownEndpoint endpoint("endpoint");
    interposed::atStat = [] { return EIO; };
    EXPECT_EQ(linx_alloc(endpoint, 50000, 1), nullptr);
    EXPECT_EQ(errno, EIO);
    interposed::reset();
    EXPECT_NE(linx_alloc(endpoint, 50000, 1), nullptr);
}

TEST_F(GapsTest, ABlockThatHasGoneToAnotherHomeIsNotAllocated) {
    KnownEndpoint endpoint("endpoint");
    LinxSignal* signal = linx_alloc(endpoint, 4, 1);
    const BlockRef block = arena.blockAt(refOf(signal));
    linx_free_buf(endpoint, &signal);
    {
        const DomainLock lock(*joined);
        central::abandon(arena, block);
        central::push(arena, block);
    }
    const KnownEndpoint another("another");
    LinxSignal* others = linx_alloc(another, 4, 3);
    EXPECT_EQ(blockOf(others), block.block);
    LinxSignal* own = linx_alloc(endpoint, 4, 2);
    EXPECT_NE(blockOf(own), block.block);
    linx_free_buf(endpoint, &own);
    linx_free_buf(another, &others);
}

TEST_F(GapsTest, WhatAStoppedPusherMayYetPushIsNotLostForAnother) {
    KnownEndpoint dead("dead");
    KnownEndpoint target("target");
    KnownEndpoint alive("alive");
    LinxSignal* signal = linx_alloc(alive, 4, 1);
    Block& block = *blockOf(signal);
    const Ref ref = arena.refOf(&block);
    // `dead` had sent the block once; now `alive` is about to.
    slotOf(dead.spid).sending.storeRelaxed(ref);
    slotOf(alive.spid).sending.storeRelaxed(ref);
    block.owner.storeRelease(inFlightTo(target.spid));
    EXPECT_FALSE(isLostInFlight(arena, arena.blockAt(ref), dead.spid));
    EXPECT_TRUE(isLostInFlight(arena, arena.blockAt(ref), alive.spid));
    block.owner.storeRelease(heldBy(alive.spid));
    linx_free_buf(alive, &signal);
}

}  // namespace
}  // namespace linx
