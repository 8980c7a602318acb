// What a receive leaves behind that has no memory for the signals that it finds.

#include <cerrno>

#include "host/mailbox/announced_stack.h"
#include "tests/host/endpoints.h"
#include "tests/host/failing_new.h"

namespace linx {
namespace {

using linxtest::anySignal;
using linxtest::Linx;
using linxtest::nextNewFails;

using ExhaustionTest = linxtest::ArenaDomainTest;

TEST_F(ExhaustionTest, WhatWasSentToAnEarlierUserOfTheSlotIsStillThrownAway) {
    Linx receiver("receiver");
    Linx sender("sender");
    sendNumber(sender, receiver.spid, 1);
    // As one who was held up since before the slot changed hands.
    const Spid earlier = makeSpid(indexOf(receiver.spid), generationOf(receiver.spid) - 1);
    LinxSignal* signal = linx_alloc(sender, 4, 2);
    Block& stray = *blockOf(signal);
    stray.owner.storeRelease(earlier | ownerTransit);
    stack::push(slotOf(receiver.spid).mailbox, stray, refOf(signal));

    nextNewFails = true;
    ASSERT_EQ(linx_receive_w_tmo(receiver, &signal, 0, anySignal), -1);
    EXPECT_EQ(errno, ENOMEM);
    ASSERT_FALSE(nextNewFails);
    EXPECT_EQ(receiveNumber(receiver), 1u);
    EXPECT_EQ(receiveNumber(receiver), 0u);
    EXPECT_EQ(dropped(receiver.spid), 1u);
}

}  // namespace
}  // namespace linx
