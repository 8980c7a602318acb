// Doorbells that cannot be rung for want of kernel memory, and wake states that somebody has garbled.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <optional>
#include <string>
#include <utility>

#include "host/mailbox/wake_state.h"
#include "host/system/clock.h"
#include "tests/host/endpoints.h"
#include "tests/host/interposed.h"
#include "tests/kit/child.h"
#include "tests/kit/pipe_writes.h"
#include "tests/kit/readable.h"

namespace linx {
namespace {

namespace interposed = linxtest::interposed;

using linxtest::FailingWrites;
using linxtest::KnownEndpoint;

class UnrungTest : public linxtest::ArenaDomainTest {
protected:
    /// An endpoint, and two that have talked to it.
    struct Scene {
        KnownEndpoint receiver{"receiver"};
        KnownEndpoint one{"one"};
        KnownEndpoint two{"two"};
        ScopedDescriptor descriptor{linx_get_descriptor(receiver)};

        bool isReadable() const { return ::isReadable(descriptor.get()); }
    };

    static void acquaint(Scene& scene) {
        sendNumber(scene.one, scene.receiver.spid, 1);
        sendNumber(scene.two, scene.receiver.spid, 1);
        EXPECT_EQ(receiveNumber(scene.receiver), 1u);
        EXPECT_EQ(receiveNumber(scene.receiver), 1u);
        EXPECT_EQ(receiveNumber(scene.receiver), 0u);
    }

    static void sendWithoutRing(Scene& scene) {
        const FailingWrites failing(ENOMEM);
        sendNumber(scene.one, scene.receiver.spid, 2);
    }

    void garble(Spid spid, uint32_t state) { slotOf(spid).wakeState.storeRelaxed(wake_state::word(spid, state)); }
};

TEST_F(UnrungTest, ASenderThatCouldNotRingDoesSoWithItsNextOperation) {
    Scene scene;
    acquaint(scene);
    {
        const FailingWrites failing(ENOMEM);
        sendNumber(scene.one, scene.receiver.spid, 2);
        EXPECT_FALSE(scene.isReadable());
    }
    LinxSignal* signal = linx_alloc(scene.one, 4, 3);
    EXPECT_TRUE(scene.isReadable());
    linx_free_buf(scene.one, &signal);
    EXPECT_EQ(receiveNumber(scene.receiver), 2u);
}

TEST_F(UnrungTest, WhoCouldNotRingForAnAnswerDoesSoWithItsNextOperation) {
    const KnownEndpoint hunter("hunter");
    const ScopedDescriptor descriptor(linx_get_descriptor(hunter));
    ASSERT_EQ(linx_hunt(hunter, "late", nullptr), 0);
    std::optional<FailingWrites> failing;
    const std::string doorbell = doorbellOf(hunter.spid);
    interposed::atOpen = [&](const char* name) {
        if (doorbell == domain.pathOf(name)) failing.emplace(ENOMEM);  // not when it fills its own
    };
    LINX* late = linx_open("late", 0, nullptr);
    interposed::reset();
    failing.reset();
    EXPECT_FALSE(isReadable(descriptor.get()));
    LinxSignal* signal = linx_alloc(late, 4, 3);
    EXPECT_TRUE(isReadable(descriptor.get()));
    EXPECT_EQ(receiveNumber(hunter), static_cast<uint32_t>(LINX_OS_HUNT_SIG));
    EXPECT_EQ(linx_free_buf(late, &signal), 0);
    EXPECT_EQ(linx_close(late), 0);
}

TEST_F(UnrungTest, SoDoesTheNextSender) {
    Scene scene;
    acquaint(scene);
    sendWithoutRing(scene);
    sendNumber(scene.two, scene.receiver.spid, 3);
    EXPECT_TRUE(scene.isReadable());
    EXPECT_EQ(receiveNumber(scene.receiver), 2u);
    EXPECT_EQ(receiveNumber(scene.receiver), 3u);
}

TEST_F(UnrungTest, ASenderThatSleepsPaysItsDebtFromThere) {
    Scene scene;
    acquaint(scene);
    unsigned left = 16;  // more than are tried at once
    linxtest::atPipeWrite = [&](const void*, size_t) { return left != 0 && left-- != 0 ? ENOMEM : 0; };
    sendNumber(scene.one, scene.receiver.spid, 2);
    LinxSignal* none = nullptr;
    while (left != 0) EXPECT_EQ(linx_receive_w_tmo(scene.one, &none, 1, anySignal), 0);
    EXPECT_EQ(linx_receive_w_tmo(scene.one, &none, 1, anySignal), 0);
    linxtest::atPipeWrite = nullptr;
    EXPECT_TRUE(scene.isReadable());
    EXPECT_EQ(receiveNumber(scene.receiver), 2u);
}

TEST_F(UnrungTest, ASenderInAPollLoopIsCalledToPayItsDebt) {
    Scene scene;
    acquaint(scene);
    const ScopedDescriptor descriptor(linx_get_descriptor(scene.one));
    sendWithoutRing(scene);
    EXPECT_FALSE(scene.isReadable());
    EXPECT_TRUE(isReadable(descriptor.get(), 10000)) << "nothing else wakes it";
    EXPECT_EQ(receiveNumber(scene.one), 0u);
    EXPECT_TRUE(scene.isReadable());
    EXPECT_EQ(receiveNumber(scene.receiver), 2u);
}

TEST_F(UnrungTest, WhoHasPaidItsDebtIsCalledNoMore) {
    Scene scene;
    acquaint(scene);
    const ScopedDescriptor descriptor(linx_get_descriptor(scene.one));
    sendWithoutRing(scene);
    EXPECT_EQ(receiveNumber(scene.one), 0u);
    EXPECT_TRUE(scene.isReadable());
    EXPECT_FALSE(isReadable(descriptor.get(), 30)) << "it was to be called after a millisecond";
    EXPECT_EQ(receiveNumber(scene.receiver), 2u);
}

TEST_F(UnrungTest, WhoseSignalWasReceivedRemindsNobody) {
    Scene scene;
    acquaint(scene);
    sendNumber(scene.one, scene.receiver.spid, 2);
    sendNumber(scene.one, scene.receiver.spid, 3);  // for which the receiver does not ask to be rung
    EXPECT_EQ(receiveNumber(scene.receiver), 2u);
    EXPECT_EQ(receiveNumber(scene.receiver), 3u);
    EXPECT_EQ(receiveNumber(scene.receiver), 0u);
    const ScopedDescriptor doorbell(open(doorbellOf(scene.receiver.spid).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    LinxSignal* none = nullptr;
    EXPECT_EQ(linx_receive_w_tmo(scene.one, &none, 1, anySignal), 0);
    int bytes = -1;
    ASSERT_EQ(ioctl(doorbell.get(), FIONREAD, &bytes), 0);
    EXPECT_EQ(bytes, 0);
}

TEST_F(UnrungTest, ManySendsOntoABacklogAskTheClockNowAndThen) {
    Scene scene;
    acquaint(scene);
    const interposed::StandingClock standing;  // all in one tick
    sendNumber(scene.one, scene.receiver.spid, 2);
    int looks = 0;
    interposed::atClock = [&] { ++looks; };
    constexpr int sends = 100;
    for (int i = 0; i < sends; ++i) sendNumber(scene.one, scene.receiver.spid, 3);
    interposed::reset();
    EXPECT_LT(looks, sends / 4);
}

TEST_F(UnrungTest, AByteThatCouldNotBeWrittenIsNotTakenForWritten) {
    Scene scene;
    acquaint(scene);
    {
        const FailingWrites failing(ENOMEM);
        for (const uint32_t number : {2u, 3u, 4u}) sendNumber(scene.one, scene.receiver.spid, number);
        EXPECT_EQ(receiveNumber(scene.receiver), 2u);  // leaves two in the queue, and no byte
    }
    EXPECT_EQ(receiveNumber(scene.receiver), 3u);
    EXPECT_TRUE(scene.isReadable());
    EXPECT_EQ(receiveNumber(scene.receiver), 4u);
    EXPECT_EQ(receiveNumber(scene.receiver), 0u);
    EXPECT_FALSE(scene.isReadable());
}

/// Sleeps without limit until a signal of this number comes.
void sleepUntil(uint32_t last) {
    const ::Endpoint sleeper("sleeper");
    uint32_t number = 0;
    while (number != last) {
        LinxSignal* signal = nullptr;
        ASSERT_GT(linx_receive(sleeper, &signal, anySignal), 0);
        number = signal->number;
        linx_free_buf(sleeper, &signal);
    }
}

class GarbledWakeStateTest : public UnrungTest, public testing::WithParamInterface<uint32_t> {
protected:
    void SetUp() override {
        child_.emplace([](Line&) { sleepUntil(9); });
        ASSERT_EQ(linx_hunt(sender_, "sleeper", nullptr), 0);
        LinxSignal* found = nullptr;
        ASSERT_GT(linx_receive(sender_, &found, anySignal), 0);
        sleeper_ = linxtest::AnySpid(linx_sender(sender_, &found));
        linx_free_buf(sender_, &found);
        sendNumber(sender_, sleeper_, 1);
        const Slot& slot = slotOf(sleeper_);
        while (slot.wakeState.loadAcquire() != wake_state::word(sleeper_, wake_state::parked)) sched_yield();
        garble(sleeper_, GetParam());
    }
    void TearDown() override {
        EXPECT_TRUE(child_->endsInTime() && child_->exitStatus() == 0) << "slept over what it was sent";
        child_.reset();
        sender_.close();
        UnrungTest::TearDown();
    }

    const linxtest::ScopedVariable spin_{"LINX_SPIN_US", "0"};
    KnownEndpoint sender_{"sender"};
    linxtest::AnySpid sleeper_;
    std::optional<Child> child_;
};

TEST_P(GarbledWakeStateTest, ABacklogHealsItWithinATick) {
    sendNumber(sender_, sleeper_, 2);
    const uint64_t tick = coarseMilliseconds();
    while (coarseMilliseconds() == tick) {
    }
    for (int i = 0; i < 16; ++i) sendNumber(sender_, sleeper_, 3);
    sendNumber(sender_, sleeper_, 9);
}

TEST_P(GarbledWakeStateTest, ASenderThatWaitsForTheAnswerHealsIt) {
    sendNumber(sender_, sleeper_, 9);
    LinxSignal* none = nullptr;
    EXPECT_EQ(linx_receive_w_tmo(sender_, &none, 10, anySignal), 0);
}

INSTANTIATE_TEST_SUITE_P(Words, GarbledWakeStateTest, testing::Values(wake_state::awake, wake_state::notified));

/// What the peer of the next test does, in a process of its own: answers once; and when it is told to, receives two
/// more, sends a last signal without a ring, and dies.
void answerAndDie(Line& test) {
    const ::Endpoint peer("peer");
    test.tell();
    LinxSignal* signal = nullptr;
    linx_receive(peer, &signal, anySignal);
    const LinxSpid other = linx_sender(peer, &signal);
    linx_send(peer, &signal, other);
    LinxSignal* last = linx_alloc(peer, 4, 77);
    test.tell();
    test.hear();
    linx_receive(peer, &signal, anySignal);
    linx_receive(peer, &signal, anySignal);
    const FailingWrites failing(ENOMEM);
    linx_send(peer, &last, other);
    raise(SIGKILL);
}

TEST_F(UnrungTest, WhoFindsItsReceiverDeadAfterASendLooksForWhatThatOneHadSent) {
    Child child(answerAndDie);
    child.hear();
    KnownEndpoint one("one");
    const ScopedDescriptor descriptor{linx_get_descriptor(one)};
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_hunt(one, "peer", &signal), 0);
    ASSERT_GT(linx_receive(one, &signal, anySignal), 0);
    const LinxSpid peer = linx_sender(one, &signal);
    ASSERT_EQ(linx_send(one, &signal, peer), 0);
    ASSERT_GT(linx_receive(one, &signal, anySignal), 0);
    linx_free_buf(one, &signal);
    ASSERT_EQ(receiveNumber(one), 0u);
    child.hear();
    sendNumber(one, peer, 2);
    // The next finds a backlog, and asks the clock whether it is time to ring for it: by then the peer has died over
    // its own send, and somebody has the domain lock, so that it cannot be reaped.
    bool mayDie = true;
    interposed::atClock = [&] {
        if (!std::exchange(mayDie, false)) return;
        child.tell();
        EXPECT_EQ(child.exitStatus(), -SIGKILL);
    };
    interposed::atLock = [] { return EWOULDBLOCK; };
    signal = linx_alloc(one, 4, 3);
    EXPECT_EQ(linx_send(one, &signal, peer), 0) << "it was received before the peer died";
    EXPECT_FALSE(mayDie);
    EXPECT_TRUE(isReadable(descriptor.get()));
    interposed::reset();
    EXPECT_EQ(receiveNumber(one), 77u);
}

}  // namespace
}  // namespace linx
