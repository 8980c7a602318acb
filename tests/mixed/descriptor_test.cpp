// The descriptor is readable exactly while a receive would not wait, whatever size the senders have.

#include "tests/mixed/support/mixed_test.h"

namespace {

using Descriptor = MixedTest;

constexpr uint32_t item = 100;
constexpr uint32_t other = 101;
constexpr uint32_t notice = 102;

/// Sends signals of the numbers that it is told, and says when each is sent; 0 ends it.
const Role obedient("Descriptor.obedient", [](Line& parent) {
    Endpoint endpoint("sender");
    const LinxSpid to = hunt(endpoint, "looker");
    parent.tell(spidOf(endpoint));
    while (const uint32_t number = parent.hear()) {
        EXPECT_EQ(0, send(endpoint, to, number));
        parent.tell();
    }
});

void haveSent(const Child& sender, uint32_t number) {
    sender.tell(number);
    sender.hear();
}

/// Tells the truth about itself at every step. The sender must be obedient.
void look(Endpoint& endpoint, const Child& sender) {
    EXPECT_FALSE(endpoint.readable());
    for (int i = 0; i < 50; ++i) {
        haveSent(sender, item);
        EXPECT_TRUE(endpoint.readable());
        EXPECT_TRUE(endpoint.readable());
        expectSignal(endpoint, item, 0);
        EXPECT_FALSE(endpoint.readable());
    }
    haveSent(sender, other);
    haveSent(sender, item);
    ASSERT_TRUE(receive(endpoint, 0, {item}));
    EXPECT_TRUE(endpoint.readable());
    EXPECT_FALSE(receive(endpoint, 0, {item}));
    EXPECT_TRUE(endpoint.readable());
    ASSERT_TRUE(receive(endpoint, 0, {other}));
    EXPECT_FALSE(endpoint.readable());
}

TEST_F(Descriptor, IsReadableFromTheFirstSignalToTheLast) {
    Child sender(obedient.in(Size::other));
    Endpoint endpoint("looker");
    sender.hear();
    look(endpoint, sender);
    sender.tell(0);
    EXPECT_EQ(0, sender.exitStatus());
}

TEST_F(Descriptor, IsReadableWhenASupervisedPeerIsKilled) {
    Child sender(obedient.in(Size::other));
    Endpoint endpoint("looker");
    const LinxSpid spid = sender.hear();
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    EXPECT_FALSE(endpoint.readable());
    sender.kill9();
    EXPECT_TRUE(endpoint.awaitReadable());
    EXPECT_EQ(spid, expectSignal(endpoint, notice, 0).sender);
    EXPECT_FALSE(endpoint.readable());
}

TEST_F(Descriptor, IsReadableOnceTheOtherSizeOpensAnAbsentName) {
    Endpoint endpoint("looker");
    ASSERT_EQ(0, linx_hunt(endpoint, "sender", nullptr));
    EXPECT_FALSE(endpoint.readable());
    Child sender(obedient.in(Size::other));
    const LinxSpid spid = sender.hear();
    EXPECT_TRUE(endpoint.readable());
    EXPECT_EQ(spid, expectSignal(endpoint, LINX_OS_HUNT_SIG, 0).sender);
    EXPECT_FALSE(endpoint.readable());
}

constexpr uint32_t rounds = 2000;
constexpr uint32_t streamed = 20000;

/// Receives as a poll loop does, one receive a wake-up, and answers while `rounds` last.
void pollLoop(Endpoint& endpoint) {
    for (uint32_t received = 0; received < rounds + streamed;) {
        ASSERT_TRUE(endpoint.awaitReadable()) << "asleep after " << received;
        const std::optional<Received> signal = receive(endpoint, 0);
        if (!signal) continue;
        ASSERT_EQ(received, signal->word());
        if (received++ < rounds) {
            ASSERT_EQ(0, send(endpoint, signal->sender, item));
        }
    }
}

/// What such a loop is fed: signals that each await their answer, then a stream.
void feed(const char* to) {
    Endpoint endpoint("feeder");
    const LinxSpid looker = hunt(endpoint, to);
    for (uint32_t i = 0; i < rounds + streamed; ++i) {
        ASSERT_EQ(0, send(endpoint, looker, item, {i}));
        if (i < rounds) expectSignal(endpoint, item);
    }
}

const Role feeder("Descriptor.feeder", [](Line&) { feed("looker"); });
const Role looker("Descriptor.looker", [](Line&) {
    Endpoint endpoint("looker");
    pollLoop(endpoint);
});

TEST_F(Descriptor, WakesAPollLoopForEverySignalOfTheOtherSize) {
    Child sender(feeder.in(Size::other));
    Endpoint endpoint("looker");
    pollLoop(endpoint);
    EXPECT_EQ(0, sender.exitStatus());
}

TEST_F(Descriptor, WakesAPollLoopInTheOtherSizeForEverySignal) {
    Child receiver(looker.in(Size::other));
    feed("looker");
    EXPECT_EQ(0, receiver.exitStatus());
}

}  // namespace
