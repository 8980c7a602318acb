#include "tests/link/pair.h"

namespace {

using namespace linktest;
using testing::ElementsAre;

Header headerOf(const Bytes& frame) {
    return readFrame(frame.data(), frame.size())->header;
}

/// Channels of an endpoint `a` to several of `b`.
class Channels : public Pair {
public:
    explicit Channels(size_t count, uint32_t credit = usualCredit) {
        introduce();
        for (size_t i = 0; i < count; ++i) servers.push_back(*b.announce("server" + std::to_string(i), credit));
        settle();
        take<Announced>(a);
        now += 20ms;
        settle();
    }
    Sent sendTo(size_t number, size_t size) {
        return a.send(FarId(numberOf(servers[number])), client, 7, bytesOf(size));
    }
    std::vector<OwnId> servers;
};

}  // namespace

TEST(ChannelsTest, SmallSignalsShareAFrameWithTheseBytes) {
    Pair pair;
    pair.introduce();
    pair.send({1, 2, 3}, 5);
    pair.send({}, 0x01020304);
    const std::vector<Bytes> frames = pair.framesOf(pair.a);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(headerOf(frames[0]).type, Type::signals);
    EXPECT_EQ(headerOf(frames[0]).channel, numberOf(pair.server));
    EXPECT_THAT(Bytes(frames[0].begin() + headerBytes, frames[0].end()),
                ElementsAre(0, 0, 0, 1, 0, 0, 0, 5, 0, 0, 0, 3, 1, 2, 3,  //
                            0, 0, 0, 1, 1, 2, 3, 4, 0, 0, 0, 0));
    pair.give(frames, pair.b);
    const auto arrived = take<Arrived>(pair.b);
    ASSERT_EQ(arrived.size(), 2u);
    EXPECT_EQ(arrived[0].from, FarId(numberOf(pair.client)));
    EXPECT_EQ(arrived[0].to, pair.server);
    EXPECT_EQ(arrived[0].number, 5u);
    EXPECT_EQ(arrived[0].payload, Bytes({1, 2, 3}));
    EXPECT_EQ(arrived[1].number, 0x01020304u);
}

TEST(ChannelsTest, ASignalOfAnySizeComesAsItWasSent) {
    Pair pair;
    pair.introduce();
    const size_t unbroken = bodyBytes - signalHeadBytes;
    for (const size_t size : {size_t(0), size_t(1), unbroken - 1, unbroken, unbroken + 1, 2 * unbroken + 1,
                              size_t(65532), size_t(mostSignal - 4)}) {
        ASSERT_EQ(pair.send(bytesOf(size)), Sent::taken);
        std::vector<Arrived> arrived;
        for (int turns = 0; turns < 10 && arrived.empty(); ++turns) {
            pair.settle();
            arrived = take<Arrived>(pair.b);
            pair.now += 20ms;
        }
        ASSERT_EQ(arrived.size(), 1u) << size;
        EXPECT_EQ(arrived[0].payload, bytesOf(size)) << size;
        pair.b.consumed(pair.server, size);
        pair.settle();
    }
}

TEST(ChannelsTest, OneByteMoreThanTheLargestIsTooLarge) {
    Pair pair;
    pair.introduce();
    EXPECT_EQ(pair.send(bytesOf(mostSignal - 3)), Sent::tooLarge);
}

TEST(ChannelsTest, ADestinationThatDoesNotConsumeGetsNoMoreThanItsCredit) {
    Channels pair(2, 4096);
    size_t taken = 0;
    while (pair.sendTo(0, 936) == Sent::taken) {
        ++taken;
        pair.settle();
    }
    EXPECT_EQ(take<Arrived>(pair.b).size(), 4u) << "of a charge of 1000 bytes each";
    EXPECT_GT(taken, 4u);
    EXPECT_LE(pair.a.bytesOut(), mostQueued);
    EXPECT_EQ(pair.sendTo(1, 936), Sent::taken) << "the other channel is not concerned";
    pair.settle();
    EXPECT_EQ(take<Arrived>(pair.b).size(), 1u);
}

TEST(ChannelsTest, WhatIsConsumedMakesRoomForMore) {
    Channels pair(1, 4096);
    for (int i = 0; i < 6; ++i) pair.sendTo(0, 936);
    pair.settle();
    EXPECT_EQ(take<Arrived>(pair.b).size(), 4u);
    pair.b.consumed(pair.servers[0], 936);
    pair.b.consumed(pair.servers[0], 936);
    pair.settle();
    EXPECT_EQ(take<Arrived>(pair.b).size(), 2u);
}

TEST(ChannelsTest, ASignalLargerThanTheCreditTravelsAlone) {
    Channels pair(1, 4096);
    pair.sendTo(0, 10);
    pair.sendTo(0, 10000);
    pair.settle();
    EXPECT_EQ(take<Arrived>(pair.b).size(), 1u);
    pair.b.consumed(pair.servers[0], 10);
    pair.settle();
    EXPECT_EQ(take<Arrived>(pair.b).size(), 1u);
}

TEST(ChannelsTest, ASmallSignalDoesNotWaitBehindALargeOneForSomebodyElse) {
    Channels pair(2);
    pair.sendTo(0, 200000);
    pair.sendTo(1, 10);
    const std::vector<Bytes> frames = pair.framesOf(pair.a);
    size_t at = 0;
    while (at < frames.size() && headerOf(frames[at]).type != Type::signals) ++at;
    EXPECT_LE(at, 1u) << "frames of the large one before it";
}

TEST(ChannelsTest, ChannelsTakeTurns) {
    Channels pair(2);
    pair.sendTo(0, 100000);
    pair.sendTo(1, 100000);
    std::vector<uint32_t> channels;
    for (const Bytes& frame : pair.framesOf(pair.a)) channels.push_back(headerOf(frame).channel);
    ASSERT_EQ(channels.size(), 14u);
    for (size_t i = 2; i < 12; ++i) EXPECT_NE(channels[i], channels[i - 1]) << i;
}

TEST(ChannelsTest, FourLargeSignalsAreUnderWayAtATime) {
    Channels pair(6);
    for (size_t i = 0; i < 6; ++i) ASSERT_EQ(pair.sendTo(i, 200000), Sent::taken);
    std::vector<uint32_t> begun;
    for (const Bytes& frame : pair.framesOf(pair.a)) {
        if ((headerOf(frame).flags & flagFirst) != 0) begun.push_back(headerOf(frame).channel);
    }
    EXPECT_EQ(begun.size(), mostPartials) << "before the window is full";
}

TEST(ChannelsTest, NoMoreIsOnItsWayThanTheWindow) {
    Channels pair(6);
    for (size_t i = 0; i < 6; ++i) pair.sendTo(i, 200000);
    size_t bytes = 0;
    for (const Bytes& frame : pair.framesOf(pair.a)) bytes += frame.size();
    EXPECT_LE(bytes, settingsOf(2).window);
    EXPECT_GT(bytes, settingsOf(2).window - frameBytes);
}

TEST(ChannelsTest, WhatNobodyTakesIsNotAcknowledged) {
    Channels pair(6);
    for (size_t i = 0; i < 6; ++i) pair.sendTo(i, 200);
    for (int turns = 0; turns < 5; ++turns) {
        pair.settle();
        pair.now += 20ms;
    }
    EXPECT_FALSE(pair.a.isAtRest());
    EXPECT_EQ(take<Arrived>(pair.b).size(), 6u);
    pair.settle();
    EXPECT_TRUE(pair.a.isAtRest());
}

TEST(ChannelsTest, AnEndComesAfterWhatWasSentAlsoWhenThatHasToWait) {
    Channels pair(1, 4096);
    for (int i = 0; i < 6; ++i) pair.sendTo(0, 936);
    pair.a.ended(pair.client);
    pair.settle();
    while (pair.b.event() != nullptr) EXPECT_FALSE(std::holds_alternative<Ended>(pair.b.take()));
    for (int i = 0; i < 4; ++i) pair.b.consumed(pair.servers[0], 936);
    pair.settle();
    ASSERT_NE(pair.b.event(), nullptr);
    EXPECT_TRUE(std::holds_alternative<Arrived>(pair.b.take()));
    EXPECT_TRUE(std::holds_alternative<Arrived>(pair.b.take()));
    EXPECT_TRUE(std::holds_alternative<Ended>(pair.b.take()));
    EXPECT_EQ(pair.b.event(), nullptr);
}

TEST(ChannelsTest, ANameIsAnnouncedAnewOnlyAfterTheEndOfTheLast) {
    Channels pair(1, 4096);
    for (int i = 0; i < 6; ++i) pair.sendTo(0, 936);
    pair.a.ended(pair.client);
    EXPECT_FALSE(pair.a.announce("client")) << "its signals still wait";
    pair.settle();
    take<Arrived>(pair.b);
    for (int i = 0; i < 4; ++i) pair.b.consumed(pair.servers[0], 936);
    pair.settle();
    const auto again = pair.a.announce("client");
    ASSERT_TRUE(again);
    EXPECT_NE(*again, pair.client);
}

TEST(ChannelsTest, TwoThatHaveEndedDoNotWaitForEachOther) {
    Pair pair;
    pair.introduce(leastCredit);
    for (int i = 0; i < 3; ++i) {
        pair.send(bytesOf(900));
        pair.b.send(FarId(numberOf(pair.client)), pair.server, 7, bytesOf(900));
    }
    pair.settle();
    pair.a.ended(pair.client);
    pair.b.ended(pair.server);
    pair.settle();
    EXPECT_EQ(take<Ended>(pair.a).size(), 1u);
    EXPECT_EQ(take<Ended>(pair.b).size(), 1u);
}

TEST(ChannelsTest, WhatComesForAnEndpointThatHasEndedIsCounted) {
    Pair pair;
    pair.introduce();
    pair.send(bytesOf(10));
    ASSERT_EQ(pair.send(bytesOf(20000)), Sent::taken);
    pair.b.ended(pair.server);
    const std::vector<Bytes> end = pair.framesOf(pair.b);
    pair.give(pair.framesOf(pair.a), pair.b);
    EXPECT_EQ(pair.b.counts().strays, 2u);
    EXPECT_EQ(pair.b.state(), Session::State::up);
    pair.give(end, pair.a);
    EXPECT_EQ(pair.send(bytesOf(10)), Sent::gone);
}

TEST(ChannelsTest, WhatWaitsForAnEndpointThatEndsIsCounted) {
    Channels pair(1, 4096);
    for (int i = 0; i < 6; ++i) pair.sendTo(0, 936);
    pair.settle();
    pair.b.ended(pair.servers[0]);
    const std::vector<Bytes> frames = pair.framesOf(pair.b);
    ASSERT_EQ(headerOf(frames[0]).type, Type::credit);
    pair.give(frames, pair.a);  // no turn between the credit and the end
    EXPECT_EQ(pair.a.counts().undeliverable, 2u);
    EXPECT_EQ(pair.a.bytesOut(), 0u);
}
