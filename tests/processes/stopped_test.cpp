// A process that stands still, or that nobody lets receive, holds up nobody else.

#include <cerrno>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

using linxtest::ScopedVariable;

constexpr uint32_t item = 100;
constexpr uint32_t end = 101;

/// The smallest arena, soon full.
class Stopped : public ProcessTest {
    const ScopedVariable size_{"LINX_ARENA_MB", "4"};
};
using FullPool = Stopped;

/// Receives numbered signals until `end` and says how many there were, as often as it is told to.
void counter(Line& parent) {
    Endpoint endpoint("counter");
    parent.tell();
    while (parent.hear() != 0) {
        uint32_t expected = 0;
        for (std::optional<Received> received; (received = receive(endpoint, patience)); ++expected) {
            if (received->number == end) break;
            EXPECT_EQ(received->word(), expected);
        }
        parent.tell(expected);
    }
}

/// Sends numbered signals until there is no memory. Returns how many.
uint32_t sendUntilFull(LINX* endpoint, LinxSpid to, size_t words) {
    for (uint32_t sent = 0;; ++sent) {
        std::vector<uint32_t> payload(words);
        payload[0] = sent;
        const int result = send(endpoint, to, item, payload);
        if (result == 0) continue;
        EXPECT_EQ(result, ENOMEM);
        return sent;
    }
}

/// Sends `end` as soon as there is memory for it: the receiver is at work.
void sendEnd(LINX* endpoint, LinxSpid to) {
    const uint64_t tries = 1u << 30;
    for (uint64_t i = 0; i < tries; ++i) {
        const int result = send(endpoint, to, end);
        if (result == 0) return;
        ASSERT_EQ(result, ENOMEM);
    }
    FAIL() << "the memory did not come back";
}

TEST_F(Stopped, AReceiverDoesNotBlockItsSender) {
    Child child(counter);
    child.hear();
    Endpoint endpoint("sender");
    const LinxSpid to = hunt(endpoint, "counter");
    child.tell(1);
    child.stop();
    const uint32_t sent = sendUntilFull(endpoint, to, 100);
    EXPECT_GT(sent, 1000u);
    child.cont();
    sendEnd(endpoint, to);
    EXPECT_EQ(child.hear(), sent);
    child.tell(0);
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Stopped, AReceiverStoppedAnywhereGoesOnWhereItWas) {
    Child child(counter);
    child.hear();
    Endpoint endpoint("sender");
    const LinxSpid to = hunt(endpoint, "counter");
    constexpr uint32_t rounds = 200;
    child.tell(1);
    for (uint32_t i = 0; i < rounds * 20; ++i) {
        if (i % 20 == 10) child.stop();
        ASSERT_EQ(send(endpoint, to, item, {i}), 0);
        if (i % 20 == 19) child.cont();
    }
    ASSERT_EQ(send(endpoint, to, end), 0);
    EXPECT_EQ(child.hear(), rounds * 20);
    child.tell(0);
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Stopped, OneProcessDoesNotKeepOthersFromTalking) {
    Child stopped([](Line& parent) {
        Endpoint endpoint("stopped");
        parent.tell();
        parent.hear();
    });
    stopped.hear();
    stopped.stop();
    Child mirror([](Line&) {
        Endpoint endpoint("mirror");
        for (uint32_t i = 0; i < 1000; ++i) {
            const Received received = expectSignal(endpoint, item);
            ASSERT_EQ(send(endpoint, received.sender, item, {received.word()}), 0);
        }
    });
    Endpoint endpoint("sender");
    const LinxSpid other = hunt(endpoint, "mirror");
    const LinxSpid still = hunt(endpoint, "stopped");
    for (uint32_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(send(endpoint, other, item, {i}), 0);
        ASSERT_EQ(send(endpoint, still, item, {i}), 0);
        ASSERT_EQ(expectSignal(endpoint, item).word(), i);
    }
    EXPECT_EQ(mirror.exitStatus(), 0);
    Endpoint late("late");  // neither is opening, hunting and closing held up
    EXPECT_EQ(hunt(endpoint, "late"), spidOf(late));
}

TEST_F(FullPool, AllThatWasSentArrivesAndThenThereIsRoomAgain) {
    Child child(counter);
    child.hear();
    Endpoint endpoint("sender");
    const LinxSpid to = hunt(endpoint, "counter");
    uint32_t usual = 0;
    for (int round = 0; round < 10; ++round) {
        const uint32_t sent = sendUntilFull(endpoint, to, 250);
        EXPECT_GT(sent, 500u);
        if (round <= 1) usual = sent;  // the very first time it may get more than its share, by the rest of a lease
        EXPECT_NEAR(usual, sent, 8) << "round " << round;
        child.tell(1);
        sendEnd(endpoint, to);
        ASSERT_EQ(child.hear(), sent);
    }
    child.tell(0);
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(FullPool, OneFullMailboxLeavesRoomForOthers) {
    Child child(counter);
    child.hear();
    Endpoint greedy("greedy");
    sendUntilFull(greedy, hunt(greedy, "counter"), 1000);
    Endpoint modest("modest");
    for (uint32_t i = 0; i < 100; ++i) {
        ASSERT_EQ(send(modest, spidOf(modest), item, {i}), 0);
        ASSERT_EQ(expectSignal(modest, item).word(), i);
    }
}

TEST_F(FullPool, RoomOfOneSizeBecomesRoomOfAnother) {
    Endpoint endpoint("only");
    const LinxSpid own = spidOf(endpoint);
    for (const size_t words : {1u, 16384u, 100u, 250000u, 10u}) {
        const uint32_t sent = sendUntilFull(endpoint, own, words);
        EXPECT_GT(sent * words * sizeof(uint32_t), 100u << 10) << words << " words";
        for (uint32_t i = 0; i < sent; ++i) ASSERT_EQ(expectSignal(endpoint, item, 0).word(), i);
    }
}

TEST_F(FullPool, AnEndedEndpointLeavesItsRoomToTheNext) {
    for (int round = 0; round < 30; ++round) {
        Endpoint endpoint("greedy");
        EXPECT_GT(sendUntilFull(endpoint, spidOf(endpoint), 10000), 20u) << "round " << round;
    }
}

}  // namespace
