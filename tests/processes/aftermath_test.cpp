// What a killed process leaves to the living: its memory, and their traffic undisturbed.

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <random>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/shared.h"
#include "tests/kit/signals.h"

namespace {

using linxtest::ScopedVariable;

constexpr uint32_t item = 100;
constexpr uint32_t end = 101;
constexpr uint32_t noise = 102;
constexpr uint32_t notice = 103;

/// A small arena, so that what is not given back is soon missed.
class Aftermath : public ProcessTest {
    const ScopedVariable size_{"LINX_ARENA_MB", "16"};
};

/// Allocates and sends to `to` until no memory is left. Returns how many signals that were.
uint32_t fill(LINX* endpoint, LinxSpid to, uint32_t bytes) {
    uint32_t sent = 0;
    for (;;) {
        LinxSignal* signal = linx_alloc(endpoint, bytes, item);
        if (signal == nullptr) {
            EXPECT_EQ(errno, ENOMEM);
            return sent;
        }
        EXPECT_EQ(linx_send(endpoint, &signal, to), 0);
        ++sent;
    }
}

TEST_F(Aftermath, TheMemoryOfTheKilledComesBack) {
    constexpr uint32_t perChild = 8u << 20;
    constexpr uint32_t size = 32000;
    for (int round = 0; round < 20; ++round) {
        Child child([](Line& parent) {
            // No endpoint may take all: several share the load.
            std::vector<std::unique_ptr<Endpoint>> endpoints;
            for (int i = 0; i < 4; ++i) endpoints.push_back(std::make_unique<Endpoint>("child" + std::to_string(i)));
            for (uint32_t i = 0; i < perChild / size; ++i) {
                LINX* endpoint = *endpoints[i % 4];
                LinxSignal* signal = linx_alloc(endpoint, size, item);
                ASSERT_NE(signal, nullptr) << i;
                // Held, queued for oneself, queued for another.
                if (i % 3 == 1) {
                    ASSERT_EQ(linx_send(endpoint, &signal, spidOf(endpoint)), 0);
                }
                if (i % 3 == 2) {
                    ASSERT_EQ(linx_send(endpoint, &signal, spidOf(*endpoints[(i + 1) % 4])), 0);
                }
            }
            parent.tell();
            parent.hear();
        });
        child.hear();
        child.kill9();
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

TEST_F(Aftermath, TheMemoryOfTheKilledComesToWhoeverRunsOutThoughHeNeverKnewThem) {
    constexpr uint32_t size = 32000;
    Child child([](Line& parent) {
        std::vector<std::unique_ptr<Endpoint>> endpoints;
        for (int i = 0; i < 4; ++i) {
            endpoints.push_back(std::make_unique<Endpoint>("child" + std::to_string(i)));
            while (linx_alloc(*endpoints.back(), size, item) != nullptr) {
            }
        }
        parent.tell();
        parent.hear();
    });
    child.hear();
    Endpoint endpoint("endpoint");
    EXPECT_EQ(linx_alloc(endpoint, size, item), nullptr);
    child.kill9();
    // The dead are looked for now and then, and not with every refusal.
    LinxSignal* signal = nullptr;
    EXPECT_TRUE(comesTrue([&] { return (signal = linx_alloc(endpoint, size, item)) != nullptr; }));
}

TEST_F(Aftermath, TheMemoryOfAKilledReceiverComesBackToTheSender) {
    Endpoint endpoint("sender");
    uint32_t usual = 0;
    for (int round = 0; round < 20; ++round) {
        Child receiver([](Line& parent) {
            Endpoint own("receiver");
            parent.tell();
            parent.hear();
        });
        receiver.hear();
        const uint32_t sent = fill(endpoint, hunt(endpoint, "receiver"), 10000);
        if (round <= 1) usual = sent;  // the very first time it may get more than its share, by the rest of a lease
        ASSERT_GT(sent, 100u) << "round " << round;
        EXPECT_EQ(sent, usual) << "round " << round;
        receiver.kill9();
    }
}

TEST_F(Aftermath, TheMemoryOfAKilledReceiverIsFoundByTheFirstAllocationThatWantsIt) {
    Child receiver([](Line& parent) {
        Endpoint own("receiver");
        parent.tell();
        parent.hear();
    });
    receiver.hear();
    Endpoint endpoint("sender");
    const LinxSpid spid = hunt(endpoint, "receiver");
    const uint32_t sent = fill(endpoint, spid, 10000);
    Endpoint other("other");  // so that no refused send notices the death
    receiver.kill9();
    EXPECT_LE(sent, fill(endpoint, spidOf(other), 10000) + 1);
}

TEST_F(Aftermath, WhatAKilledSenderHadSentArrivesWholeAfterItsEnd) {
    Endpoint endpoint("receiver");
    for (uint32_t round = 0; round < 20; ++round) {
        Child sender([round](Line& parent) {
            Endpoint own("sender");
            const LinxSpid to = hunt(own, "receiver");
            for (uint32_t i = 0; i < 50; ++i) ASSERT_EQ(sendBytes(own, to, item, pattern(20000, 50 * round + i)), 0);
            parent.tell();
            parent.hear();
        });
        sender.hear();
        sender.kill9();
        // A new endpoint under the name takes over what the dead one left, but not what it gave away.
        Endpoint next("sender");
        for (uint32_t i = 0; i < 50; ++i) {
            ASSERT_EQ(sendBytes(next, spidOf(next), noise, pattern(20000, i)), 0);
        }
        for (uint32_t i = 0; i < 50; ++i) {
            ASSERT_TRUE(pattern(20000, 50 * round + i) == expectSignal(endpoint, item).payload);
        }
    }
}

/// Sends numbered signals in small bursts and expects each back, amid noise, until told to finish.
void conductor(Counters& shared) {
    Endpoint endpoint("conductor");
    const LinxSpid mirror = hunt(endpoint, "mirror");
    uint32_t sent = 0;
    uint32_t returned = 0;
    while (!shared.finish) {
        for (int i = 0; i < 8; ++i) ASSERT_EQ(send(endpoint, mirror, item, {sent++}), 0);
        while (returned < sent) {
            const std::optional<Received> received = receive(endpoint, patience);
            ASSERT_TRUE(received) << "lost after " << returned;
            if (received->number == noise) {
                send(endpoint, received->sender, noise);  // its sender may be dead by now
                continue;
            }
            ASSERT_EQ(received->sender, mirror);
            ASSERT_EQ(received->word(), returned++);
        }
        shared.progress = returned;
    }
    ASSERT_EQ(send(endpoint, mirror, end), 0);
    EXPECT_EQ(expectAmongOthers(endpoint, end).sender, mirror);
}

/// Sends every signal on to where it came from, and checks the numbers.
void mirror() {
    Endpoint endpoint("mirror");
    const LinxSpid conductor = hunt(endpoint, "conductor");
    for (uint32_t expected = 0;;) {
        LinxSignal* signal = nullptr;
        ASSERT_LT(0, linx_receive_w_tmo(endpoint, &signal, patience, anySignal)) << "lost after " << expected;
        const LinxSpid sender = linx_sender(endpoint, &signal);
        const uint32_t number = signal->number;
        if (number != noise) {
            ASSERT_EQ(sender, conductor);
        }
        if (number == item) {
            uint32_t word;
            std::copy_n(payloadOf(signal), sizeof word, reinterpret_cast<unsigned char*>(&word));
            ASSERT_EQ(word, expected++);
        }
        const int result = linx_send(endpoint, &signal, sender);
        if (number != noise) {
            ASSERT_EQ(result, 0);
        }
        if (number == end) return;
    }
}

/// Talks to both without pause, until it is killed. Every step counts.
void victim(Counters& shared) {
    Endpoint endpoint("victim");
    const LinxSpid conductor = hunt(endpoint, "conductor");
    const LinxSpid mirror = hunt(endpoint, "mirror");
    attach(endpoint, conductor, notice);
    for (uint32_t i = 0;; ++i) {
        ++shared.steps;
        send(endpoint, i % 2 == 0 ? conductor : mirror, noise, std::vector<uint32_t>(i % 100));
        ++shared.steps;
        receive(endpoint, 1000, {noise});
    }
}

TEST_F(Aftermath, KillsAmidTrafficDisturbNobodyElse) {
    const Shared<Counters> shared;
    Child first([&](Line&) { conductor(*shared); });
    Child second([&](Line&) { mirror(); });
    std::mt19937 random(1);
    for (int round = 0; round < 50; ++round) {
        shared->steps = 0;
        Child killed([&](Line&) { victim(*shared); });
        ASSERT_TRUE(shared->steps.reaches(1 + static_cast<uint32_t>(random() % 500))) << "round " << round;
        killed.kill9();
        // The others go on: they exchange at least one more burst after each kill.
        ASSERT_TRUE(shared->progress.reaches(shared->progress + 16)) << "round " << round;
    }
    shared->finish = true;
    EXPECT_EQ(first.exitStatus(), 0);
    EXPECT_EQ(second.exitStatus(), 0);
}

}  // namespace
