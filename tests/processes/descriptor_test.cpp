// The descriptor is readable exactly while a receive of any signal would not wait.

#include <poll.h>

#include <cerrno>

#include "tests/kit/role_test.h"
#include "tests/kit/signals.h"

namespace {

using Descriptor = RoleTest;

constexpr uint32_t item = 100;
constexpr uint32_t other = 101;
constexpr uint32_t notice = 102;

/// Sends signals of the numbers that it is told, to the endpoint "looker", and says when each is sent; 0 ends it.
const Role obedientSender("Descriptor.obedientSender", [](Line& parent) {
    Endpoint endpoint("sender");
    const LinxSpid to = hunt(endpoint, here("looker"));
    parent.tell(spidOf(endpoint));
    while (const uint32_t number = parent.hear()) {
        EXPECT_EQ(send(endpoint, to, number), 0);
        parent.tell();
    }
});

/// An endpoint "looker" and a process that sends to it what it is told to.
class Looker : public RoleTest {
protected:
    void SetUp() override {
        RoleTest::SetUp();
        sender = std::make_unique<Child>(obedientSender);
        endpoint = std::make_unique<Endpoint>("looker");
        senderSpid = met(sender->hear(), there("sender"));
    }
    void TearDown() override {
        endpoint.reset();
        sender.reset();
        RoleTest::TearDown();
    }
    void haveSent(uint32_t number) const {
        sender->tell(number);
        sender->hear();
    }

    /// Of what another one has done.
    bool isReadable() const { return endpoint->pollFor(atOnce()); }

    /// That the descriptor is not readable when everything has been received. Who rings does so after the signal is
    /// there: that a send has returned here says nothing of the ring of a link.
    void expectDry() const {
        const auto runsDry = [&] {
            expectNothing(*endpoint);
            return !endpoint->readable();
        };
        EXPECT_TRUE(areApart() ? comesTrue(runsDry) : !endpoint->readable());
    }

    std::unique_ptr<Child> sender;
    std::unique_ptr<Endpoint> endpoint;
    LinxSpid senderSpid = 0;
};

TEST_F(Looker, IsNotReadableBeforeAnythingWasSent) {
    EXPECT_FALSE(endpoint->readable());
    expectNothing(*endpoint);
    EXPECT_FALSE(endpoint->readable());
}

TEST_F(Looker, IsTheSameDescriptorEachTime) {
    EXPECT_EQ(linx_get_descriptor(*endpoint), endpoint->descriptor());
}

/// Sends a signal to the spid that it is told.
const Role told("Descriptor.told", [](Line& parent) {
    Endpoint endpoint("sender");
    EXPECT_EQ(send(endpoint, met(parent.hear(), here("endpoint")), item), 0);
});

TEST_F(Descriptor, ClosedTooEarlyIsMissedByNobodyWhoeverGetsItsNumber) {
    LINX* linx = linx_open("endpoint", 0, nullptr);
    const LinxSpid own = spidOf(linx);
    const int descriptor = linx_get_descriptor(linx);
    EXPECT_EQ(linx_get_descriptor(linx), descriptor);
    ASSERT_EQ(close(descriptor), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(ends[0], descriptor);
    ASSERT_EQ(write(ends[1], "x", 1), 1);  // readable for ever, if anybody waited on it
    LinxSignal* signal = nullptr;
    EXPECT_EQ(linx_receive_w_tmo(linx, &signal, 1, anySignal), 0);
    Child sender(told);
    sender.tell(own);
    EXPECT_EQ(linx_receive(linx, &signal, anySignal), 4);
    EXPECT_EQ(linx_free_buf(linx, &signal), 0);
    EXPECT_EQ(sender.exitStatus(), 0);
    EXPECT_EQ(linx_close(linx), 0);
    EXPECT_EQ(close(ends[0]), 0);
    EXPECT_EQ(close(ends[1]), 0);
}

TEST_F(Looker, IsReadableFromTheFirstSignalToTheLast) {
    for (int i = 0; i < 3; ++i) haveSent(item);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(isReadable());
        expectSignal(*endpoint, item, atOnce());
    }
    expectDry();
}

TEST_F(Looker, StaysReadableUntilSomethingIsReceived) {
    haveSent(item);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(isReadable());
    expectSignal(*endpoint, item, atOnce());
    expectDry();
}

TEST_F(Looker, StaysReadableWhenASelectiveReceiveLeavesOthers) {
    haveSent(other);
    haveSent(item);
    ASSERT_TRUE(receive(*endpoint, atOnce(), {item}));
    EXPECT_TRUE(isReadable());
    EXPECT_FALSE(receive(*endpoint, 0, {item}));
    EXPECT_TRUE(isReadable());
    EXPECT_FALSE(receive(*endpoint, 20, {item}));
    EXPECT_TRUE(isReadable());
    ASSERT_TRUE(receive(*endpoint, 0, {other}));
    expectDry();
}

TEST_F(Looker, IsReadableAgainAfterItHadRunDry) {
    for (int i = 0; i < 100; ++i) {
        haveSent(item);
        EXPECT_TRUE(isReadable());
        expectSignal(*endpoint, item, atOnce());
        expectDry();
    }
}

TEST_F(Looker, IsReadableWhileAnAnswerToAHuntWaits) {
    ASSERT_EQ(linx_hunt(*endpoint, there("sender").c_str(), nullptr), 0);
    EXPECT_TRUE(isReadable());
    expectSignal(*endpoint, LINX_OS_HUNT_SIG, atOnce());
    expectDry();
}

const Role lateComer("Looker.lateComer", [](Line& parent) {
    Endpoint own("late");
    parent.tell();
    parent.hear();
});

TEST_F(Looker, IsReadableOnceAnAbsentNameOpens) {
    ASSERT_EQ(linx_hunt(*endpoint, there("late").c_str(), nullptr), 0);
    EXPECT_FALSE(endpoint->readable());
    Child late(lateComer);
    late.hear();
    EXPECT_TRUE(isReadable());
    expectSignal(*endpoint, LINX_OS_HUNT_SIG, atOnce());
    expectDry();
}

TEST_F(Looker, IsReadableWhileASignalToOneselfWaits) {
    ASSERT_EQ(send(*endpoint, spidOf(*endpoint), item), 0);
    EXPECT_TRUE(endpoint->readable());
    expectSignal(*endpoint, item, 0);
    EXPECT_FALSE(endpoint->readable());
}

TEST_F(Looker, IsReadableWhenATimeOutFires) {
    ASSERT_NE(linx_request_tmo(*endpoint, 5, nullptr), 0u);
    EXPECT_TRUE(endpoint->awaitReadable());
    EXPECT_TRUE(endpoint->readable());
    EXPECT_EQ(expectSignal(*endpoint, LINX_OS_TIMEOUT_SIG, 0).sender, spidOf(*endpoint));
    EXPECT_FALSE(endpoint->readable());
}

TEST_F(Looker, StaysReadableWhenASelectiveReceivePassesOverATimeOut) {
    ASSERT_NE(linx_request_tmo(*endpoint, 1, nullptr), 0u);
    ASSERT_TRUE(endpoint->awaitReadable());
    EXPECT_FALSE(receive(*endpoint, 0, {item}));
    EXPECT_TRUE(endpoint->readable());
    expectSignal(*endpoint, LINX_OS_TIMEOUT_SIG, 0);
    EXPECT_FALSE(endpoint->readable());
}

TEST_F(Looker, IsNotReadableAfterTheOnlyTimeOutIsTakenBack) {
    LinxRef fired = linx_request_tmo(*endpoint, 1, nullptr);
    ASSERT_TRUE(endpoint->awaitReadable());
    EXPECT_EQ(linx_cancel_tmo(*endpoint, &fired), 0);
    EXPECT_EQ(fired, 0u);
    EXPECT_FALSE(endpoint->readable());
    expectNothing(*endpoint);
}

TEST_F(Looker, IsNotReadableAfterAQueuedTimeOutIsTakenBack) {
    LinxRef fired = linx_request_tmo(*endpoint, 1, nullptr);
    ASSERT_TRUE(endpoint->awaitReadable());
    EXPECT_FALSE(receive(*endpoint, 0, {item}));  // brings it into the queue
    EXPECT_EQ(linx_cancel_tmo(*endpoint, &fired), 0);
    EXPECT_FALSE(endpoint->readable());
    expectNothing(*endpoint);
}

TEST_F(Looker, TakingATimeOutBackLeavesTheOtherOnes) {
    LinxRef earlier = linx_request_tmo(*endpoint, 1, nullptr);
    LinxSignal* later = linx_alloc(*endpoint, sizeof(LinxSignal), other);
    ASSERT_NE(linx_request_tmo(*endpoint, 30, &later), 0u);
    EXPECT_EQ(linx_cancel_tmo(*endpoint, &earlier), 0);
    EXPECT_TRUE(endpoint->awaitReadable());
    expectSignal(*endpoint, other, 0);
    EXPECT_FALSE(endpoint->readable());
}

TEST_F(Looker, IsReadableWhenASupervisedPeerIsKilled) {
    ASSERT_NE(attach(*endpoint, senderSpid, notice), 0u);
    EXPECT_FALSE(endpoint->readable());
    sender->kill9();
    EXPECT_TRUE(endpoint->awaitReadable());
    EXPECT_EQ(expectSignal(*endpoint, notice, atOnce()).sender, senderSpid);
    expectDry();
}

TEST_F(Looker, ASecondNoticeKeepsItReadable) {
    ASSERT_NE(attach(*endpoint, senderSpid, notice), 0u);
    ASSERT_NE(attach(*endpoint, senderSpid, notice), 0u);
    sender->kill9();
    EXPECT_TRUE(endpoint->awaitReadable());
    expectSignal(*endpoint, notice, atOnce());
    EXPECT_TRUE(endpoint->readable());
    expectSignal(*endpoint, notice, atOnce());
    expectDry();
}

TEST_F(Looker, OneReceiveSilencesTheEndOfAnUnsupervisedPeer) {
    haveSent(item);
    const LinxSpid known = expectSignal(*endpoint, item).sender;
    ASSERT_EQ(send(*endpoint, known, item), 0);
    sender->kill9();
    learnEndOf(known);
    expectNothing(*endpoint);
    expectDry();
}

/// Receives as a poll loop does: never more than one receive a wake-up. Returns how often it was woken for nothing.
uint32_t pollLoop(Endpoint& endpoint, uint32_t signals) {
    uint32_t forNothing = 0;
    for (uint32_t received = 0; received < signals;) {
        if (!endpoint.awaitReadable()) {
            ADD_FAILURE() << "asleep after " << received << " with " << (receive(endpoint, 0) ? "" : "no ")
                          << "signal waiting";
            return forNothing;
        }
        const std::optional<Received> signal = receive(endpoint, 0);
        if (signal) {
            EXPECT_EQ(signal->word(), received);
            ++received;
        } else {
            ++forNothing;
        }
    }
    return forNothing;
}

constexpr uint32_t rounds = 2000;

const Role asker("Descriptor.asker", [](Line&) {
    Endpoint endpoint("sender");
    const LinxSpid to = hunt(endpoint, here("looker"));
    for (uint32_t i = 0; i < rounds; ++i) {
        ASSERT_EQ(send(endpoint, to, item, {i}), 0);
        expectSignal(endpoint, item);
    }
});

TEST_F(Descriptor, WakesAPollLoopForEverySignal) {
    Child sender(asker);
    Endpoint endpoint("looker");
    const LinxSpid to = hunt(endpoint, there("sender"));
    uint32_t forNothing = 0;
    for (uint32_t i = 0; i < rounds; ++i) {
        std::optional<Received> signal;
        while (!signal) {
            ASSERT_TRUE(endpoint.awaitReadable()) << i;
            signal = receive(endpoint, 0);
            if (!signal) ++forNothing;
        }
        // A byte may come late for the last signal; and the sender introduces itself once, or twice if it answers a
        // hunt, before there is a signal at all.
        ASSERT_LE(forNothing, i + 3);
        ASSERT_EQ(signal->word(), i);
        ASSERT_EQ(send(endpoint, to, item), 0);
    }
    EXPECT_EQ(sender.exitStatus(), 0);
}

constexpr uint32_t streamed = 20000;

const Role streamer("Descriptor.streamer", [](Line&) {
    Endpoint endpoint("sender");
    const LinxSpid to = hunt(endpoint, here("looker"));
    for (uint32_t i = 0; i < streamed; ++i) ASSERT_EQ(send(endpoint, to, item, {i}), 0);
});

TEST_F(Descriptor, WakesAPollLoopForSignalsInAStream) {
    Child sender(streamer);
    Endpoint endpoint("looker");
    // A false wake-up belongs to a signal: there cannot be more of them.
    EXPECT_LE(pollLoop(endpoint, streamed), streamed);
    EXPECT_EQ(sender.exitStatus(), 0);
}

/// Events come as they like while the looker awaits replies; they must not be forgotten behind the descriptor.
const Role talker("Descriptor.talker", [](Line&) {
    Endpoint endpoint("talker");
    const LinxSpid to = hunt(endpoint, here("looker"));
    for (uint32_t i = 0; i < rounds; ++i) {
        ASSERT_EQ(send(endpoint, to, item, {i}), 0);
        expectSignal(endpoint, other);
        ASSERT_EQ(send(endpoint, to, other, {i}), 0);
    }
});

TEST_F(Descriptor, ALoopThatAwaitsRepliesInBetweenMissesNothing) {
    Child busy(talker);
    Endpoint endpoint("looker");
    const LinxSpid to = hunt(endpoint, there("talker"));
    for (uint32_t i = 0; i < rounds;) {
        ASSERT_TRUE(endpoint.awaitReadable()) << i;
        const std::optional<Received> event = receive(endpoint, 0);
        if (!event) continue;
        ASSERT_EQ(event->number, item);
        ASSERT_EQ(event->word(), i);
        ASSERT_EQ(send(endpoint, to, other), 0);
        ASSERT_EQ(expectAmongOthers(endpoint, other).word(), i++);
    }
    EXPECT_EQ(busy.exitStatus(), 0);
}

}  // namespace
