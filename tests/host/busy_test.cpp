// A receiver whose queue never runs dry: it must not miss what else happens, and not ask the kernel all the time.

#include <fcntl.h>

#include "host/system/scoped_descriptor.h"
#include "tests/host/endpoints.h"
#include "tests/host/interposed.h"
#include "tests/kit/readable.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;
namespace interposed = linxtest::interposed;

constexpr uint32_t notice = 101;
constexpr uint32_t timeout = 102;
constexpr uint32_t later = 103;

class BusyTest : public linxtest::ArenaDomainTest {
protected:
    void TearDown() override {
        interposed::reset();
        sender.close();
        receiver.close();
        ArenaDomainTest::TearDown();
    }

    /// Has `signals` be there to be received from the queue.
    void keepBusy() {
        for (uint32_t number = 1; number <= signals + 1; ++number) sendNumber(sender, receiver.spid, number);
        ASSERT_EQ(receiveNumber(receiver), 1u);  // which takes all of them into the queue
    }

    /// Has the kernel's clock tick before the next receive.
    static void passTick() { ++interposed::secondsAhead; }

    void supervise() {
        LinxSignal* signal = linx_alloc(receiver, 4, notice);
        ASSERT_NE(linx_attach(receiver, &signal, supervised.spid), 0u);
    }

    /// How often the kernel is asked while they are received, in one tick, in which it was not asked before.
    int looksOfATick() {
        const interposed::StandingClock standing;
        interposed::secondsAhead = 1;
        int looks = 0;
        interposed::atLook = [&] { ++looks; };
        for (uint32_t number = 2; number <= signals; ++number) EXPECT_EQ(receiveNumber(receiver), number);
        interposed::atLook = nullptr;
        EXPECT_EQ(receiveNumber(receiver), signals + 1) << "the queue had run dry before";
        return looks;
    }

    KnownEndpoint receiver{"receiver"};
    KnownEndpoint supervised{"supervised"};

    static constexpr uint32_t signals = 20;
    KnownEndpoint sender{"sender"};
};

TEST_F(BusyTest, WhoSupervisesAsksTheKernelOnceATick) {
    supervise();
    keepBusy();
    EXPECT_EQ(looksOfATick(), 1);
    supervised.close();
    EXPECT_EQ(receiveNumber(receiver), notice);
}

TEST_F(BusyTest, WhoSupervisesIsToldOfAnEndOfWhichOnlyItsDoorbellTells) {
    supervise();
    const ScopedDescriptor descriptor(linx_get_descriptor(receiver));
    const ScopedDescriptor copy(open(doorbellOf(supervised.spid).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    keepBusy();
    supervised.close();  // the copy, as a forked process has it, stays
    passTick();
    EXPECT_EQ(receiveNumber(receiver), 2u);
    EXPECT_TRUE(isReadable(descriptor.get())) << "though signals wait";
    sendNumber(sender, receiver.spid, later);
    for (uint32_t number = 3; number <= signals + 1; ++number) EXPECT_EQ(receiveNumber(receiver), number);
    EXPECT_EQ(receiveNumber(receiver), notice);
    EXPECT_EQ(receiveNumber(receiver), later);
    EXPECT_EQ(receiveNumber(receiver), 0u);
    EXPECT_FALSE(isReadable(descriptor.get())) << "though nothing waits";
}

TEST_F(BusyTest, WhoHasOnlyRequestedATimeOutDoesNotAskTheKernel) {
    LinxSignal* signal = linx_alloc(receiver, 4, timeout);
    LinxRef reference = linx_request_tmo(receiver, 3600 * 1000, &signal);
    ASSERT_NE(reference, 0u);
    keepBusy();
    EXPECT_EQ(looksOfATick(), 0);
    EXPECT_EQ(linx_cancel_tmo(receiver, &reference), 0);
    supervised.close();
}

}  // namespace
}  // namespace linx
