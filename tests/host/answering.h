#ifndef LINXIPC_TESTS_HOST_ANSWERING_H
#define LINXIPC_TESTS_HOST_ANSWERING_H

#include "tests/host/recovery.h"

namespace linx {

/// A hunt of the live endpoint that an opening endpoint is about to answer.
class AnsweringTest : public RecoveryTest {
protected:
    AnsweringTest() {
        EXPECT_EQ(linx_hunt(live, "sought", nullptr), 0);
        EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 1u);
        signal = arena.hunt(0).signal.loadRelaxed();
        opener = layDead("opener");
    }

    Hunt& hunt() const { return arena.hunt(0); }
    void begin() const { block(signal).owner.storeRelaxed(inFlightTo(live.spid)); }
    void tell() const {
        hunt().hunter.storeRelaxed(answeredTo(live.spid));
        block(signal).sender.storeRelaxed(opener);
    }
    void push() const { linxtest::deliver(slotOf(live.spid), arena.blockAt(signal)); }

    void expectPendingAgain() const {
        repairAfterDeath();
        EXPECT_EQ(hunt().hunter.loadRelaxed(), huntedBy(live.spid));
        EXPECT_EQ(block(signal).owner.loadRelaxed(), queuedFor(live.spid));
    }
    void expectStillPending() {
        expectPendingAgain();
        reapDead(opener);
        expectInOrder();
        EXPECT_EQ(receiveNumber(live), 0u);
        const linxtest::KnownEndpoint sought("sought");
        expectReceivedOnceFrom(sought.spid);
    }
    void expectAnswered() {
        repairAfterDeath();
        reapDead(opener);
        EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 0u);
        expectReceivedOnceFrom(opener);
        const linxtest::KnownEndpoint sought("sought");
        EXPECT_EQ(receiveNumber(live), 0u);
    }
    void expectReceivedOnceFrom(linxtest::AnySpid spid) {
        LinxSignal* received = nullptr;
        ASSERT_EQ(linx_receive_w_tmo(live, &received, 0, anySignal), 4);
        EXPECT_EQ(received->number, static_cast<uint32_t>(LINX_OS_HUNT_SIG));
        EXPECT_EQ(linx_sender(live, &received), spid);
        EXPECT_EQ(linx_free_buf(live, &received), 0);
        EXPECT_EQ(receiveNumber(live), 0u);
    }

    Ref signal = Ref::none;
    linxtest::AnySpid opener;
};

}  // namespace linx

#endif
