// What is sent between processes arrives: whole, in order, from whom it says.

#include <algorithm>
#include <map>

#include "tests/kit/role_test.h"
#include "tests/kit/signals.h"

namespace {

using Traffic = RoleTest;

constexpr uint32_t item = 100;
constexpr uint32_t end = 101;

/// For every size class the largest signal that it holds, and one byte more.
std::vector<uint32_t> edgesOfTheClasses() {
    std::vector<uint32_t> sizes = {sizeof(LinxSignal), sizeof(LinxSignal) + 1};
    for (const linx::SizeClass& sizeClass : linx::sizeClasses) {
        const uint32_t largest = sizeClass.lines * linx::lineBytes - uint32_t{offsetof(linx::Block, signal)};
        sizes.push_back(std::min(largest, linx::maxSignalBytes));
        if (largest < linx::maxSignalBytes) sizes.push_back(largest + 1);
    }
    return sizes;
}

Bytes payloadOfSize(uint32_t size) {
    return pattern(size - sizeof(LinxSignal), size);
}

/// Sends a signal of every size, numbered by it.
void sendEverySize(LINX* linx, LinxSpid to) {
    for (const uint32_t size : edgesOfTheClasses()) ASSERT_EQ(sendBytes(linx, to, size, payloadOfSize(size)), 0);
}

void expectEverySize(LINX* linx, LinxSpid from) {
    for (const uint32_t size : edgesOfTheClasses()) {
        const Received received = expectSignal(linx, size);
        EXPECT_EQ(received.sender, from);
        EXPECT_TRUE(payloadOfSize(size) == received.payload) << size;
    }
}

const Role everySize("Traffic.everySize", [](Line&) {
    Endpoint endpoint("other");
    const LinxSpid peer = hunt(endpoint, here("own"));
    for (int round = 0; round < 2; ++round) {
        expectEverySize(endpoint, peer);
        sendEverySize(endpoint, peer);
    }
    expectSignal(endpoint, end);
});

TEST_F(Traffic, SignalsOfEverySizeArriveWhole) {
    Child other(everySize);
    Endpoint endpoint("own");
    const LinxSpid peer = hunt(endpoint, there("other"));
    for (int round = 0; round < 2; ++round) {  // the second in the blocks of the first
        sendEverySize(endpoint, peer);
        expectEverySize(endpoint, peer);
    }
    ASSERT_EQ(send(endpoint, peer, end), 0);
    EXPECT_EQ(other.exitStatus(), 0);
}

constexpr uint32_t alignedSizes = 200;

const Role sizeBySize("Traffic.sizeBySize", [](Line&) {
    Endpoint endpoint("sender");
    const LinxSpid other = hunt(endpoint, here("receiver"));
    for (uint32_t size = 0; size < alignedSizes; ++size) ASSERT_EQ(sendBytes(endpoint, other, item, Bytes(size)), 0);
});

TEST_F(Traffic, PayloadsAreAligned) {
    Child sender(sizeBySize);
    Endpoint endpoint("receiver");
    for (uint32_t size = 0; size < alignedSizes; ++size) {
        LinxSignal* signal = nullptr;
        ASSERT_EQ(linx_receive_w_tmo(endpoint, &signal, patience, anySignal),
                  static_cast<int>(size + sizeof(LinxSignal)));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(payloadOf(signal)) % 16, 0u);
        ASSERT_EQ(linx_free_buf(endpoint, &signal), 0);
    }
    EXPECT_EQ(sender.exitStatus(), 0);
}

const Role manySender("Traffic.manySender", [](Line& parent) {
    Endpoint endpoint("sender" + std::to_string(parent.hear()));
    const LinxSpid to = hunt(endpoint, here("receiver"));
    for (uint32_t i = 0; i < 3000; ++i) ASSERT_EQ(send(endpoint, to, item, {i}), 0);
});

TEST_F(Traffic, EachSendersSignalsKeepTheirOrder) {
    std::vector<std::unique_ptr<Child>> senders;
    for (uint32_t i = 0; i < 4; ++i) {
        senders.push_back(std::make_unique<Child>(manySender.in(i % 2 == 0 ? Size::own : Size::other)));
        senders.back()->tell(i);
    }
    Endpoint endpoint("receiver");
    std::map<LinxSpid, uint32_t> next;
    for (uint32_t i = 0; i < 4 * 3000; ++i) {
        const Received received = expectSignal(endpoint, item);
        ASSERT_EQ(received.word(), next[received.sender]++);
    }
    EXPECT_EQ(next.size(), 4u);
    expectNothing(endpoint);
    for (const auto& sender : senders) EXPECT_EQ(sender->exitStatus(), 0);
}

constexpr uint32_t turns = 400;

const Role inTurn("Traffic.inTurn", [](Line& parent) {
    Endpoint endpoint("sender" + std::to_string(parent.hear()));
    const LinxSpid other = hunt(endpoint, here("receiver"));
    for (uint32_t i = 0; i < turns / 2; ++i) {
        const uint32_t turn = parent.hear();
        ASSERT_EQ(send(endpoint, other, item, {turn}), 0);
        parent.tell();
    }
});

TEST_F(Traffic, WhatIsSentBeforeIsReceivedBefore) {
    Child first(inTurn);
    Child second(inTurn.in(Size::own));
    first.tell(1);
    second.tell(2);
    Endpoint endpoint("receiver");
    for (uint32_t turn = 0; turn < turns; ++turn) {
        const Child& next = turn % 2 == 0 ? first : second;
        next.tell(turn);
        next.hear();
    }
    for (uint32_t turn = 0; turn < turns; ++turn) ASSERT_EQ(expectSignal(endpoint, item).word(), turn);
    EXPECT_EQ(first.exitStatus(), 0);
    EXPECT_EQ(second.exitStatus(), 0);
}

/// Sends twelve signals of four numbers in turn, and one that says that they have all been sent.
void sendForSelection(LINX* linx, LinxSpid to) {
    for (uint32_t i = 0; i < 12; ++i) ASSERT_EQ(send(linx, to, 200 + i % 4, {i}), 0);
    ASSERT_EQ(send(linx, to, end), 0);
}

/// Takes them by selection: the others stay queued, in order.
void takeBySelection(LINX* linx) {
    expectAmongOthers(linx, end);
    EXPECT_FALSE(receive(linx, 0, {300, 301}));
    const auto takeOneOf = [&](const std::vector<uint32_t>& numbers) {
        const std::optional<Received> received = receive(linx, 0, numbers);
        return received ? static_cast<int>(received->word()) : -1;
    };
    EXPECT_EQ(takeOneOf({203}), 3);
    EXPECT_EQ(takeOneOf({203, 202}), 2);
    EXPECT_EQ(takeOneOf({203, 202}), 6);
    EXPECT_EQ(takeOneOf({203}), 7);
    for (const int left : {0, 1, 4, 5, 8, 9, 10, 11, -1}) EXPECT_EQ(takeOneOf({}), left);
}

const Role selector("Traffic.selector", [](Line& parent) {
    Endpoint endpoint("selector");
    const LinxSpid peer = hunt(endpoint, here("own"));
    takeBySelection(endpoint);
    sendForSelection(endpoint, peer);
    parent.hear();
});

TEST_F(Traffic, SelectionLeavesTheOthersQueuedInOrder) {
    Child other(selector);
    Endpoint endpoint("own");
    sendForSelection(endpoint, hunt(endpoint, there("selector")));
    takeBySelection(endpoint);
    other.tell();
    EXPECT_EQ(other.exitStatus(), 0);
}

constexpr uint32_t passedOver = 500;

const Role lateSender("Traffic.lateSender", [](Line& parent) {
    Endpoint endpoint("sender");
    const LinxSpid other = hunt(endpoint, here("receiver"));
    parent.hear();
    for (uint32_t i = 0; i < passedOver; ++i) ASSERT_EQ(send(endpoint, other, item, {i}), 0);
    ASSERT_EQ(send(endpoint, other, end), 0);
});

TEST_F(Traffic, ASelectedSignalWakesAReceiverPastOthers) {
    Child sender(lateSender);
    Endpoint endpoint("receiver");
    sender.tell();
    expectAmongOthers(endpoint, end);
    for (uint32_t i = 0; i < passedOver; ++i) ASSERT_EQ(expectSignal(endpoint, item, 0).word(), i);
    EXPECT_EQ(sender.exitStatus(), 0);
}

constexpr uint32_t hops = 3;

std::string nameOfHop(uint32_t number) {
    return number == hops ? "source" : "hop" + std::to_string(number);
}

/// Passes on what comes, to the next hop; after the last one comes the source again.
const Role hop("Traffic.hop", [](Line& parent) {
    const uint32_t number = parent.hear();
    Endpoint endpoint(nameOfHop(number));
    const LinxSpid next = hunt(endpoint, nameOfHop(number + 1));
    parent.tell(spidOf(endpoint));
    for (bool last = false; !last;) {
        LinxSignal* signal = nullptr;
        ASSERT_LT(0, linx_receive_w_tmo(endpoint, &signal, patience, anySignal));
        last = signal->number == end;
        ASSERT_EQ(linx_send(endpoint, &signal, next), 0);
    }
    parent.hear();
});

TEST_F(Traffic, ASignalGoesThroughHopsWithoutBeingCopied) {
    Endpoint endpoint("source");
    std::vector<std::unique_ptr<Child>> relayers;
    std::vector<LinxSpid> spids;
    for (uint32_t i = 0; i < hops; ++i) {
        relayers.push_back(std::make_unique<Child>(hop.in(i % 2 == 0 ? Size::other : Size::own)));
        relayers.back()->tell(i);
    }
    for (const auto& relayer : relayers) spids.push_back(relayer->hear());
    const std::vector<uint32_t> sizes = {4, 5, 36, 37, 1000, 65536, linx::maxSignalBytes, 4};
    for (size_t i = 0; i < sizes.size(); ++i) {
        LinxSignal* signal = linx_alloc(endpoint, sizes[i], i + 1 == sizes.size() ? end : item);
        ASSERT_NE(signal, nullptr);
        const LinxSignal* const sent = signal;
        const Bytes payload = payloadOfSize(sizes[i]);
        std::copy(payload.begin(), payload.end(), payloadOf(signal));
        ASSERT_EQ(linx_send(endpoint, &signal, spids.front()), 0);
        ASSERT_EQ(linx_receive_w_tmo(endpoint, &signal, patience, anySignal), static_cast<int>(sizes[i]));
        EXPECT_EQ(signal, sent) << "the block that was sent comes back";
        EXPECT_EQ(linx_sender(endpoint, &signal), spids.back());
        EXPECT_TRUE(std::equal(payload.begin(), payload.end(), payloadOf(signal))) << sizes[i];
        ASSERT_EQ(linx_free_buf(endpoint, &signal), 0);
    }
    for (const auto& relayer : relayers) relayer->tell();
    for (const auto& relayer : relayers) EXPECT_EQ(relayer->exitStatus(), 0);
}

const Role relayer("Traffic.relayer", [](Line& parent) {
    Endpoint endpoint("relayer");
    const LinxSpid target = hunt(endpoint, here("target"));
    LinxSignal* signal = nullptr;
    ASSERT_NE(linx_receive_w_tmo(endpoint, &signal, patience, anySignal), -1);
    ASSERT_EQ(linx_send(endpoint, &signal, target), 0);
    parent.hear();
});

const Role source("Traffic.source", [](Line&) {
    Endpoint endpoint("source");
    ASSERT_EQ(sendBytes(endpoint, hunt(endpoint, there("relayer")), item, pattern(48 << 10, 7)), 0);
});

TEST_F(Traffic, ARelayedSignalIsTheSameBytesFromTheRelayer) {
    Child middle(relayer);
    Child first(source.in(Size::own));
    Endpoint endpoint("target");
    const LinxSpid relaying = hunt(endpoint, there("relayer"));
    const Received received = expectSignal(endpoint, item);
    EXPECT_EQ(received.sender, relaying);
    EXPECT_TRUE(pattern(48 << 10, 7) == received.payload);
    middle.tell();
    EXPECT_EQ(middle.exitStatus(), 0);
    EXPECT_EQ(first.exitStatus(), 0);
}

const Role teller("Traffic.teller", [](Line& parent) {
    Endpoint endpoint("sender");
    ASSERT_EQ(send(endpoint, hunt(endpoint, here("receiver")), item), 0);
    parent.tell(spidOf(endpoint));
    parent.hear();
});

TEST_F(Traffic, AReceivedSignalTellsItsSender) {
    Child sender(teller);
    Endpoint endpoint("receiver");
    const LinxSpid spid = met(sender.hear(), there("sender"));
    EXPECT_EQ(expectSignal(endpoint, item).sender, spid);
    EXPECT_EQ(nameOf(endpoint, spid), there("sender"));
}

const Role waitedFor("Traffic.waitedFor", [](Line& parent) {
    Endpoint endpoint("sender");
    const LinxSpid other = hunt(endpoint, here("receiver"));
    for (uint32_t i = 0; i < 100; ++i) {
        parent.hear();
        ASSERT_EQ(send(endpoint, other, item, {i}), 0);
    }
});

TEST_F(Traffic, AReceiveWithoutALimitWaitsForTheSignal) {
    Child sender(waitedFor);
    Endpoint endpoint("receiver");
    for (uint32_t i = 0; i < 100; ++i) {
        sender.tell();
        LinxSignal* signal = nullptr;
        ASSERT_EQ(linx_receive(endpoint, &signal, anySignal), 8);
        EXPECT_EQ(signal->number, item);
        ASSERT_EQ(linx_free_buf(endpoint, &signal), 0);
    }
    EXPECT_EQ(sender.exitStatus(), 0);
}

TEST_F(Traffic, AReceiveThatRunsOutGivesNothing) {
    Endpoint endpoint("lonely");
    for (const uint32_t milliseconds : {0u, 1u, 50u}) {
        LinxSignal fake;
        LinxSignal* signal = &fake;
        EXPECT_EQ(linx_receive_w_tmo(endpoint, &signal, milliseconds, anySignal), 0);
        EXPECT_EQ(signal, nullptr);
    }
}

/// Sends and receives numbered signals at the same time, until both sides have all.
void exchange(const std::string& own, const std::string& other) {
    constexpr uint32_t count = 20000;
    Endpoint endpoint(own);
    const LinxSpid peer = hunt(endpoint, other);
    uint32_t received = 0;
    const auto take = [&](uint32_t milliseconds) {
        const std::optional<Received> signal = receive(endpoint, milliseconds);
        if (!signal) return false;
        EXPECT_EQ(signal->word(), received);
        EXPECT_EQ(signal->sender, peer);
        ++received;
        return true;
    };
    for (uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(send(endpoint, peer, item, std::vector<uint32_t>(1 + i % 50, i)), 0);
        take(0);
    }
    while (received < count) ASSERT_TRUE(take(patience)) << received;
    // Neither closes before the other has taken everything.
    ASSERT_EQ(send(endpoint, peer, end), 0);
    expectSignal(endpoint, end);
}

const Role exchanger("Traffic.exchanger", [](Line&) { exchange("left", here("right")); });

TEST_F(Traffic, TwentyThousandSignalsGoEachWayAtOnce) {
    Child other(exchanger);
    exchange("right", there("left"));
    EXPECT_EQ(other.exitStatus(), 0);
}

/// Receives `item`s whose words count from 0, until `end`. Returns how many there were.
uint32_t countInOrder(LINX* linx) {
    for (uint32_t expected = 0;; ++expected) {
        const std::optional<Received> received = receive(linx, patience);
        EXPECT_TRUE(received) << "after " << expected;
        if (!received || received->number == end) return expected;
        EXPECT_EQ(received->word(), expected);
        if (expected != received->word()) return expected;
    }
}

constexpr uint32_t longQueue = 100000;

const Role streamer("Traffic.streamer", [](Line&) {
    Endpoint own("sender");
    const LinxSpid other = hunt(own, here("receiver"));
    for (uint32_t i = 0; i < longQueue; ++i) ASSERT_EQ(send(own, other, item, {i}), 0);
    ASSERT_EQ(send(own, other, end), 0);
});

TEST_F(Traffic, ALongQueueKeepsItsOrder) {
    Endpoint endpoint("receiver");
    Child sender(streamer);
    EXPECT_EQ(sender.exitStatus(), 0);
    EXPECT_EQ(countInOrder(endpoint), longQueue);
}

}  // namespace
