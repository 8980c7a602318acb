// Who sent to whom, counted from records that were written by hand.

#include "inspect/traffic.h"

#include <gtest/gtest.h>

namespace {

using linx::EventKind;
using linx::Spid;
using linx::inspect::Flow;
using linx::inspect::Recorded;
using Record = std::vector<Recorded>;

constexpr Spid client{0x2001};
constexpr Spid server{0x2002};
constexpr uint64_t second = 1000000000;

/// A record to be written, event by event.
class Diary {
public:
    explicit Diary(Spid owner) : owner_(owner) {}

    Diary& sent(Spid to, uint32_t number, uint32_t size = 4) { return add(EventKind::sent, to, number, size); }
    Diary& received(Spid from, uint32_t number) { return add(EventKind::received, from, number, 4); }
    Diary& slept(uint64_t time) {
        add(EventKind::slept, Spid::none, 0, 0);
        record_.back().time = time;
        return *this;
    }
    operator Record() const { return record_; }

private:
    Diary& add(EventKind kind, Spid peer, uint32_t number, uint32_t size) {
        Recorded event;
        event.endpoint = owner_;
        event.count = static_cast<uint32_t>(record_.size());
        event.kind = kind;
        event.peer = peer;
        event.number = number;
        event.size = size;
        record_.push_back(event);
        return *this;
    }

    Spid owner_;
    Record record_;
};

Flow onlyFlow(const std::vector<Record>& records) {
    const std::vector<Flow> flows = linx::inspect::flowsOf(records);
    EXPECT_EQ(flows.size(), 1u);
    return flows.empty() ? Flow() : flows.front();
}

TEST(TrafficTest, WhatBothHaveRecordedCountsOnce) {
    const Flow flow = onlyFlow({Diary(client).sent(server, 7, 10).sent(server, 8).sent(server, 7, 20),
                                Diary(server).received(client, 7).received(client, 8)});
    EXPECT_EQ(flow.from, client);
    EXPECT_EQ(flow.to, server);
    ASSERT_EQ(flow.numbers.size(), 2u);
    EXPECT_EQ(flow.numbers.at(7).signals, 2u);
    EXPECT_EQ(flow.numbers.at(7).bytes, 30u);
    EXPECT_EQ(flow.numbers.at(8).signals, 1u);
}

TEST(TrafficTest, WhatTheSenderHasForgottenTheReceiverTells) {
    const Flow flow = onlyFlow(
        {Diary(client).sent(server, 8), Diary(server).received(client, 7).received(client, 7).received(client, 8)});
    EXPECT_EQ(flow.numbers.at(7).signals, 2u);
    EXPECT_EQ(flow.numbers.at(8).signals, 1u);
}

TEST(TrafficTest, AnAnswerIsTheOtherWay) {
    const auto flows = linx::inspect::flowsOf({Diary(client).sent(server, 7).received(server, 8)});
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_EQ(flows[0].from, client);
    EXPECT_EQ(flows[1].from, server);
}

TEST(TrafficTest, WhatOneReceivesOfItselfIsOnlyTrafficIfItWasSent) {
    EXPECT_TRUE(linx::inspect::flowsOf({Diary(client).received(client, 7)}).empty());
    EXPECT_EQ(onlyFlow({Diary(client).sent(client, 7).received(client, 7)}).numbers.at(7).signals, 1u);
}

TEST(TrafficTest, ARateWantsASecondOrManySignals) {
    EXPECT_FALSE(onlyFlow({Diary(client).sent(server, 7)}).perSecond) << "no time at all";
    EXPECT_FALSE(
        onlyFlow({Diary(client).slept(second).sent(server, 7).sent(server, 7).slept(second + 1000)}).perSecond)
        << "two in a microsecond";
    const Flow slow = onlyFlow({Diary(client).slept(second).sent(server, 7).slept(3 * second).sent(server, 7)});
    ASSERT_TRUE(slow.perSecond);
    EXPECT_DOUBLE_EQ(*slow.perSecond, 0.5) << "the last was sent after the last time that is known";
    Diary burst(client);
    burst.slept(second);
    for (uint32_t i = 0; i < 20; ++i) burst.sent(server, 7);
    const Flow quick = onlyFlow({burst.slept(second + second / 100)});
    ASSERT_TRUE(quick.perSecond);
    EXPECT_DOUBLE_EQ(*quick.perSecond, 2000);
}

TEST(MergingTest, WhoseEventsWaitForEachOtherAreMergedAllTheSame) {
    const Record one = Diary(client).received(server, 1).sent(server, 2);
    const Record other = Diary(server).received(client, 2).sent(client, 1);
    EXPECT_EQ(linx::inspect::merge({one, other}).size(), 4u);
}

}  // namespace
