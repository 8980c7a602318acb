// What is sent between processes arrives: whole, in order, from whom it says.

#include <cstring>
#include <map>

#include "tests/processes/support/child.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/selection.h"
#include "tests/processes/support/signals.h"

namespace {

using Traffic = ProcessTest;

constexpr uint32_t item = 100;
constexpr uint32_t end = 101;
constexpr uint32_t anySignal[] = {0};

/// Receives `item`s whose words count from 0, until `end`. Returns how many there were.
uint32_t countInOrder(LINX* linx) {
    for (uint32_t expected = 0;; ++expected) {
        const std::optional<Received> received = receive(linx, patience);
        EXPECT_TRUE(received) << "after " << expected;
        if (!received || received->number == end) return expected;
        EXPECT_EQ(expected, received->word());
        if (expected != received->word()) return expected;
    }
}

TEST_F(Traffic, SignalsOfEverySizeArriveWhole) {
    const std::vector<uint32_t> sizes = {4,    5,    19,   20,    32,    33,    60,     64,      100,
                                         1000, 4096, 4097, 65532, 65536, 65537, 300000, 1u << 20};
    Child mirror([&](Line&) {
        Endpoint endpoint("mirror");
        for (size_t i = 0; i < sizes.size(); ++i) {
            LinxSignal* signal = nullptr;
            ASSERT_EQ(static_cast<int>(sizes[i]), linx_receive_w_tmo(endpoint, &signal, patience, anySignal));
            const LinxSpid sender = linx_sender(endpoint, &signal);
            ASSERT_EQ(0, linx_send(endpoint, &signal, sender));
        }
    });
    Endpoint endpoint("looker");
    const LinxSpid other = hunt(endpoint, "mirror");
    for (const uint32_t size : sizes) {
        const Bytes sent = pattern(size - sizeof(LinxSignal), size);
        ASSERT_EQ(0, sendBytes(endpoint, other, size, sent));
    }
    for (const uint32_t size : sizes) {
        EXPECT_TRUE(pattern(size - sizeof(LinxSignal), size) == expectSignal(endpoint, size).payload) << size;
    }
    EXPECT_EQ(0, mirror.exitStatus());
}

TEST_F(Traffic, PayloadsAreAligned) {
    Child sender([](Line&) {
        Endpoint endpoint("sender");
        const LinxSpid other = hunt(endpoint, "receiver");
        for (uint32_t size = 0; size < 200; ++size) ASSERT_EQ(0, sendBytes(endpoint, other, item, Bytes(size)));
    });
    Endpoint endpoint("receiver");
    for (uint32_t size = 0; size < 200; ++size) {
        LinxSignal* signal = nullptr;
        ASSERT_EQ(static_cast<int>(size + sizeof(LinxSignal)),
                  linx_receive_w_tmo(endpoint, &signal, patience, anySignal));
        EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(payloadOf(signal)) % 16);
        ASSERT_EQ(0, linx_free_buf(endpoint, &signal));
    }
    EXPECT_EQ(0, sender.exitStatus());
}

TEST_F(Traffic, EachSendersSignalsKeepTheirOrder) {
    constexpr uint32_t count = 3000;
    const auto sender = [](const std::string& name) {
        return [name](Line&) {
            Endpoint endpoint(name);
            const LinxSpid other = hunt(endpoint, "receiver");
            for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(0, send(endpoint, other, item, {i}));
        };
    };
    Child first(sender("first"));
    Child second(sender("second"));
    Child third(sender("third"));
    Endpoint endpoint("receiver");
    std::map<LinxSpid, uint32_t> next;
    for (uint32_t i = 0; i < 3 * count; ++i) {
        const Received received = expectSignal(endpoint, item);
        ASSERT_EQ(next[received.sender]++, received.word());
    }
    EXPECT_EQ(3u, next.size());
    expectNothing(endpoint);
    for (Child* child : {&first, &second, &third}) EXPECT_EQ(0, child->exitStatus());
}

TEST_F(Traffic, WhatIsSentBeforeIsReceivedBefore) {
    constexpr uint32_t count = 200;
    const auto sender = [](const char* name) {
        return [name](Line& parent) {
            Endpoint endpoint(name);
            const LinxSpid other = hunt(endpoint, "receiver");
            for (uint32_t i = 0; i < count; ++i) {
                const uint32_t turn = parent.hear();
                ASSERT_EQ(0, send(endpoint, other, item, {turn}));
                parent.tell();
            }
        };
    };
    Child first(sender("first"));
    Child second(sender("second"));
    Endpoint endpoint("receiver");
    for (uint32_t turn = 0; turn < 2 * count; ++turn) {
        const Child& next = turn % 2 == 0 ? first : second;
        next.tell(turn);
        next.hear();
    }
    for (uint32_t turn = 0; turn < 2 * count; ++turn) ASSERT_EQ(turn, expectSignal(endpoint, item).word());
    EXPECT_EQ(0, first.exitStatus());
    EXPECT_EQ(0, second.exitStatus());
}

TEST_F(Traffic, SelectionLeavesTheOthersQueuedInOrder) {
    Child sender([](Line&) {
        Endpoint endpoint("sender");
        const LinxSpid other = hunt(endpoint, "receiver");
        sendForSelection(endpoint, other);
    });
    Endpoint endpoint("receiver");
    takeBySelection(endpoint);
    EXPECT_EQ(0, sender.exitStatus());
}

TEST_F(Traffic, ASelectedSignalWakesAReceiverPastOthers) {
    Child sender([](Line& parent) {
        Endpoint endpoint("sender");
        const LinxSpid other = hunt(endpoint, "receiver");
        parent.hear();
        for (uint32_t i = 0; i < 500; ++i) ASSERT_EQ(0, send(endpoint, other, item, {i}));
        ASSERT_EQ(0, send(endpoint, other, end));
    });
    Endpoint endpoint("receiver");
    sender.tell();
    expectAmongOthers(endpoint, end);
    for (uint32_t i = 0; i < 500; ++i) ASSERT_EQ(i, expectSignal(endpoint, item, 0).word());
    EXPECT_EQ(0, sender.exitStatus());
}

TEST_F(Traffic, ARelayedSignalIsTheSameBytesFromTheRelayer) {
    Child relayer([](Line& parent) {
        Endpoint endpoint("relayer");
        const LinxSpid target = hunt(endpoint, "target");
        LinxSignal* signal = nullptr;
        ASSERT_NE(-1, linx_receive_w_tmo(endpoint, &signal, patience, anySignal));
        ASSERT_EQ(0, linx_send(endpoint, &signal, target));
        parent.hear();
    });
    Child source([](Line&) {
        Endpoint endpoint("source");
        ASSERT_EQ(0, sendBytes(endpoint, hunt(endpoint, "relayer"), item, pattern(48 << 10, 7)));
    });
    Endpoint endpoint("target");
    const LinxSpid middle = hunt(endpoint, "relayer");
    const Received received = expectSignal(endpoint, item);
    EXPECT_EQ(middle, received.sender);
    EXPECT_TRUE(pattern(48 << 10, 7) == received.payload);
    relayer.tell();
    EXPECT_EQ(0, relayer.exitStatus());
    EXPECT_EQ(0, source.exitStatus());
}

TEST_F(Traffic, AReceivedSignalTellsItsSender) {
    Child sender([](Line& parent) {
        Endpoint endpoint("sender");
        ASSERT_EQ(0, send(endpoint, hunt(endpoint, "receiver"), item));
        parent.tell(spidOf(endpoint));
        parent.hear();
    });
    Endpoint endpoint("receiver");
    const LinxSpid spid = sender.hear();
    EXPECT_EQ(spid, expectSignal(endpoint, item).sender);
    EXPECT_EQ("sender", nameOf(endpoint, spid));
}

TEST_F(Traffic, AReceiveWithoutALimitWaitsForTheSignal) {
    Child sender([](Line& parent) {
        Endpoint endpoint("sender");
        const LinxSpid other = hunt(endpoint, "receiver");
        for (uint32_t i = 0; i < 100; ++i) {
            parent.hear();
            ASSERT_EQ(0, send(endpoint, other, item, {i}));
        }
    });
    Endpoint endpoint("receiver");
    for (uint32_t i = 0; i < 100; ++i) {
        sender.tell();
        LinxSignal* signal = nullptr;
        ASSERT_EQ(8, linx_receive(endpoint, &signal, anySignal));
        EXPECT_EQ(item, signal->number);
        ASSERT_EQ(0, linx_free_buf(endpoint, &signal));
    }
    EXPECT_EQ(0, sender.exitStatus());
}

TEST_F(Traffic, AReceiveThatRunsOutGivesNothing) {
    Endpoint endpoint("lonely");
    for (const uint32_t milliseconds : {0u, 1u, 50u}) {
        LinxSignal fake;
        LinxSignal* signal = &fake;
        EXPECT_EQ(0, linx_receive_w_tmo(endpoint, &signal, milliseconds, anySignal));
        EXPECT_EQ(nullptr, signal);
    }
}

TEST_F(Traffic, TenThousandSignalsGoEachWayAtOnce) {
    constexpr uint32_t count = 10000;
    const auto exchange = [](const char* own, const char* other) {
        Endpoint endpoint(own);
        const LinxSpid peer = hunt(endpoint, other);
        uint32_t received = 0;
        const auto take = [&](uint32_t milliseconds) {
            const std::optional<Received> signal = receive(endpoint, milliseconds);
            if (!signal) return false;
            EXPECT_EQ(received, signal->word());
            ++received;
            return true;
        };
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_EQ(0, send(endpoint, peer, item, {i}));
            take(0);
        }
        while (received < count) ASSERT_TRUE(take(patience)) << received;
        // Neither closes before the other has taken everything.
        ASSERT_EQ(0, send(endpoint, peer, end));
        expectSignal(endpoint, end);
    };
    Child other([&](Line&) { exchange("left", "right"); });
    exchange("right", "left");
    EXPECT_EQ(0, other.exitStatus());
}

TEST_F(Traffic, ALongQueueKeepsItsOrder) {
    constexpr uint32_t count = 100000;
    Endpoint endpoint("receiver");
    Child sender([](Line&) {
        Endpoint own("sender");
        const LinxSpid other = hunt(own, "receiver");
        for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(0, send(own, other, item, {i}));
        ASSERT_EQ(0, send(own, other, end));
    });
    EXPECT_EQ(0, sender.exitStatus());
    EXPECT_EQ(count, countInOrder(endpoint));
}

}  // namespace
