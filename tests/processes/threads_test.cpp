// Endpoints in threads of one process: the same traffic, where a race detector sees both sides.

#include <atomic>
#include <functional>
#include <thread>

#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

using Threads = ProcessTest;

constexpr uint32_t token = 100;
constexpr uint32_t bulk = 101;
constexpr uint32_t notice = 102;

void inThreads(uint32_t count, const std::function<void(uint32_t)>& body) {
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < count; ++i) threads.emplace_back(body, i);
    for (std::thread& thread : threads) thread.join();
}

std::string numbered(const std::string& name, uint32_t number) {
    return name + std::to_string(number);
}

/// Hands tokens round until each has made all its steps.
void ringMember(uint32_t place, uint32_t members, uint32_t steps) {
    Endpoint endpoint(numbered("ring", place));
    const LinxSpid next = hunt(endpoint, numbered("ring", (place + 1) % members));
    constexpr uint32_t tokens = 4;
    if (place == 0) {
        for (uint32_t i = 0; i < tokens; ++i) ASSERT_EQ(send(endpoint, next, token, {0}), 0);
    }
    const uint32_t mine = steps / members * tokens;
    for (uint32_t i = 0; i < mine; ++i) {
        const Received received = expectSignal(endpoint, token);
        ASSERT_EQ(received.word(), (i / tokens) * members + (place + members - 1) % members);
        if (received.word() + 1 == steps) continue;
        ASSERT_EQ(send(endpoint, next, token, {received.word() + 1}), 0);
    }
    expectNothing(endpoint);
}

TEST_F(Threads, ARingOfEndpointsPassesTokensWhileOthersComeAndGo) {
    constexpr uint32_t members = 4;
    constexpr uint32_t steps = 5000;  // of each of four tokens
    inThreads(members + 2, [](uint32_t place) {
        if (place < members) {
            ringMember(place, members, steps);
            return;
        }
        for (int i = 0; i < 200; ++i) {
            Endpoint endpoint(numbered("guest", place));
            hunt(endpoint, numbered("guest", place));
            ASSERT_EQ(linx_hunt(endpoint, numbered("ring", place % members).c_str(), nullptr), 0);
            ASSERT_EQ(linx_hunt(endpoint, "nobody", nullptr), 0);
        }
    });
}

TEST_F(Threads, ManySendersFillOneMailbox) {
    static constexpr uint32_t senders = 4;
    static constexpr uint32_t count = 5000;
    inThreads(senders + 1, [](uint32_t place) {
        if (place < senders) {
            Endpoint endpoint(numbered("sender", place));
            const LinxSpid to = hunt(endpoint, "receiver");
            for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(send(endpoint, to, bulk, {place, i}), 0);
            expectSignal(endpoint, token);
            return;
        }
        Endpoint endpoint("receiver");
        uint32_t next[senders] = {};
        LinxSpid from[senders] = {};
        for (uint32_t i = 0; i < senders * count; ++i) {
            const Received received = expectSignal(endpoint, bulk);
            ASSERT_LT(received.word(0), senders);
            ASSERT_EQ(received.word(1), next[received.word(0)]++);
            from[received.word(0)] = received.sender;
        }
        for (const LinxSpid sender : from) EXPECT_EQ(send(endpoint, sender, token), 0);
    });
}

TEST_F(Threads, EndpointsThatSuperviseEachOtherLearnOfEachEnd) {
    constexpr uint32_t pairs = 3;
    inThreads(2 * pairs, [](uint32_t place) {
        const uint32_t pair = place / 2;
        for (uint32_t round = 0; round < 300; ++round) {
            const std::string name = numbered(numbered("mortal", pair) + ".", round);
            if (place % 2 == 0) {
                Endpoint endpoint(name);
                expectSignal(endpoint, token);  // it is supervised by now
                continue;
            }
            Endpoint endpoint(numbered("supervisor", pair));
            const LinxSpid spid = hunt(endpoint, name);
            ASSERT_NE(attach(endpoint, spid, notice), 0u);
            // What the other received was sent, though it ends before this call is over.
            ASSERT_EQ(send(endpoint, spid, token), 0);
            EXPECT_EQ(expectSignal(endpoint, notice).sender, spid);
        }
    });
}

TEST_F(Threads, LargeSignalsGoRoundAndRound) {
    constexpr uint32_t members = 3;
    inThreads(members, [](uint32_t place) {
        Endpoint endpoint(numbered("member", place));
        const LinxSpid next = hunt(endpoint, numbered("member", (place + 1) % members));
        for (uint32_t i = 0; i < 300; ++i) {
            ASSERT_EQ(sendBytes(endpoint, next, bulk, pattern(1 + i * 331, i)), 0);
            ASSERT_TRUE(pattern(1 + i * 331, i) == expectSignal(endpoint, bulk).payload) << i;
        }
        // Nobody closes before all have what they wait for.
        ASSERT_EQ(send(endpoint, next, token), 0);
        expectSignal(endpoint, token);
    });
}

}  // namespace
