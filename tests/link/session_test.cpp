#include "tests/link/pair.h"

namespace {

using namespace linktest;
using testing::ElementsAre;
using testing::SizeIs;

Bytes frameOf(const Session& from, Type type, uint64_t sequence, uint32_t channel, const Bytes& body,
              uint8_t flags = 0) {
    Bytes frame = openFrame();
    Writer(frame).raw(body);
    Header header;
    header.tag = from.terms()->tagOut;
    header.sequence = sequence;
    header.channel = channel;
    header.type = type;
    header.flags = flags;
    closeFrame(frame, header);
    return frame;
}

/// The session `a`, and a far side that says whatever a test wants it to.
class Liar : public Pair {
public:
    Liar() {
        introduce();
        next_ = b.counts().framesOut;  // its HELLO has no number
        take<Announced>(a);
    }
    Session::State says(Type type, uint32_t channel, const Bytes& body, uint8_t flags = 0) {
        const Bytes frame = frameOf(b, type, next_++, channel, body, flags);
        a.arrived(frame.data(), frame.size(), now);
        return a.state();
    }

private:
    uint64_t next_;
};

constexpr auto up = Session::State::up;
constexpr auto ended = Session::State::ended;

Bytes signal(uint32_t source, uint32_t size, size_t bytes) {
    Bytes body;
    write(Writer(body), SignalHead{source, 1, size});
    body.resize(body.size() + bytes);
    return body;
}

}  // namespace

TEST(SessionTest, AMissingFrameEndsItAndIsTheReason) {
    Pair pair;
    pair.introduce();
    pair.send(bytesOf(10));
    pair.framesOf(pair.a);
    pair.send(bytesOf(10));
    pair.give(pair.framesOf(pair.a), pair.b);
    const auto down = take<Down>(pair.b);
    ASSERT_THAT(down, SizeIs(1));
    EXPECT_EQ(down[0].reason, End::gap);
    const std::vector<Bytes> farewell = pair.framesOf(pair.b);
    ASSERT_THAT(farewell, SizeIs(1));
    EXPECT_EQ(farewell[0].back(), static_cast<uint8_t>(End::gap));
    pair.give(farewell, pair.a);
    EXPECT_EQ(pair.a.state(), ended);
}

TEST(SessionTest, AFrameThatComesTwiceIsTakenOnce) {
    Pair pair;
    pair.introduce();
    pair.send(bytesOf(10));
    const std::vector<Bytes> frames = pair.framesOf(pair.a);
    pair.give(frames, pair.b);
    pair.give(frames, pair.b);
    EXPECT_THAT(take<Arrived>(pair.b), SizeIs(1));
    EXPECT_EQ(pair.b.counts().doubled, 1u);
    EXPECT_EQ(pair.b.state(), up);
}

TEST(SessionTest, AFrameOfAnotherSessionIsDroppedAndCounted) {
    Pair pair;
    pair.introduce();
    pair.send(bytesOf(10));
    std::vector<Bytes> frames = pair.framesOf(pair.a);
    frames[0][0] ^= 1;
    pair.give(frames, pair.b);
    EXPECT_THAT(take<Arrived>(pair.b), SizeIs(0));
    EXPECT_EQ(pair.b.counts().foreignTags, 1u);
    EXPECT_EQ(pair.b.state(), up);
}

TEST(SessionTest, WhatWasNotAcknowledgedIsCountedForItsDestination) {
    Pair pair;
    pair.introduce(4096);
    for (int i = 0; i < 6; ++i) pair.send(bytesOf(936));
    pair.framesOf(pair.a);  // four are on their way, two wait
    pair.a.disconnected();
    const auto down = take<Down>(pair.a);
    ASSERT_THAT(down, SizeIs(1));
    EXPECT_EQ(down[0].reason, End::disconnected);
    uint64_t lost = 0;
    for (const Loss& loss : down[0].losses) {
        EXPECT_EQ(loss.name, "server");
        lost += loss.signals;
    }
    EXPECT_EQ(lost, 6u);
}

TEST(SessionTest, WhatWasAcknowledgedIsNotLost) {
    Pair pair;
    pair.introduce();
    pair.send(bytesOf(10));
    pair.settle();
    take<Arrived>(pair.b);
    pair.now += 20ms;
    pair.settle();
    pair.send(bytesOf(10));
    pair.a.disconnected();
    const auto down = take<Down>(pair.a);
    ASSERT_THAT(down[0].losses, SizeIs(1));
    EXPECT_EQ(down[0].losses[0].signals, 1u);
}

TEST(SessionTest, WhatWasNotTakenBeforeItsEndIsNotToldAfterIt) {
    Pair pair;
    pair.introduce();
    pair.send(bytesOf(10));
    pair.settle();
    pair.b.disconnected();
    EXPECT_TRUE(std::holds_alternative<Down>(pair.b.take()));
    EXPECT_EQ(pair.b.event(), nullptr);
}

TEST(SessionTest, OneThatEndsBeforeItsBeginningWasTakenIsNotToldOf) {
    Pair pair;
    pair.settle();
    pair.a.disconnected();
    EXPECT_EQ(pair.a.event(), nullptr);
}

TEST(SessionTest, WithoutASoundFromTheOtherSideItEnds) {
    Pair pair;
    pair.settle();
    for (Time now = 0s; pair.a.state() == up && now < 10s; now += 50ms) {
        pair.a.tick(now);
        while (pair.a.nextFrame(now)) {
        }
        pair.now = now;
    }
    EXPECT_EQ(pair.a.state(), ended);
    EXPECT_GE(pair.now, Time(1500ms));
    EXPECT_LE(pair.now, Time(1600ms));
}

TEST(SessionTest, WhatHadComeBeforeTheSilenceWasNoticedIsHeardFirst) {
    Pair pair;
    pair.settle();
    for (pair.now = 0s; pair.now < 1500ms; pair.now += 50ms) pair.a.tick(pair.now);
    const std::vector<Bytes> late = pair.framesOf(pair.b);
    ASSERT_FALSE(late.empty());
    pair.a.tick(pair.now);
    EXPECT_EQ(pair.a.state(), up) << "doubted, and looked at once more";
    EXPECT_LE(pair.a.deadline(), pair.now);
    pair.give(late, pair.a);
    pair.a.tick(pair.now);
    EXPECT_EQ(pair.a.state(), up);
}

TEST(SessionTest, TimeInWhichItDidNotRunIsNobodysSilence) {
    Pair pair;
    pair.settle();
    pair.a.tick(100ms);
    pair.a.tick(100s);
    pair.a.tick(100s);
    EXPECT_EQ(pair.a.state(), up);
}

TEST(SessionTest, TwoThatHaveNothingToSayStayUpWithFewFrames) {
    Pair pair;
    pair.settle();
    const uint64_t before = pair.a.counts().framesOut;
    for (pair.now = 0s; pair.now < 10s; pair.now += 10ms) {
        pair.a.tick(pair.now);
        pair.b.tick(pair.now);
        pair.settle();
    }
    EXPECT_EQ(pair.a.state(), up);
    EXPECT_EQ(pair.b.state(), up);
    EXPECT_LE(pair.a.counts().framesOut - before, 40u) << "in ten seconds";
}

TEST(SessionTest, TheRoundTripIsMeasured) {
    Pair pair;
    pair.settle();
    for (int i = 0; i < 3; ++i) {
        pair.now += 250ms;
        const std::vector<Bytes> fromA = pair.framesOf(pair.a);
        pair.now += 3ms;
        pair.give(fromA, pair.b);
        pair.now += 250ms;
        const std::vector<Bytes> fromB = pair.framesOf(pair.b);
        pair.now += 4ms;
        pair.give(fromB, pair.a);
    }
    EXPECT_EQ(pair.a.counts().roundTrip, Time(7ms));
}

TEST(SessionTest, LeavingWaitsForWhatIsOnItsWay) {
    Pair pair;
    pair.introduce();
    pair.send(bytesOf(10));
    pair.a.leave(pair.now + 200ms);
    pair.a.tick(pair.now);
    EXPECT_EQ(pair.a.state(), up);
    EXPECT_EQ(pair.send(bytesOf(10)), Sent::later);
    pair.settle();
    EXPECT_THAT(take<Arrived>(pair.b), SizeIs(1));
    pair.now += 20ms;
    pair.settle();
    pair.a.tick(pair.now);
    EXPECT_EQ(pair.a.state(), ended);
    pair.settle();
    const auto down = take<Down>(pair.b);
    ASSERT_THAT(down, SizeIs(1));
    EXPECT_EQ(down[0].reason, End::bye);
    EXPECT_THAT(take<Down>(pair.a)[0].losses, SizeIs(0));
}

TEST(SessionTest, LeavingDoesNotWaitForEver) {
    Pair pair;
    pair.introduce();
    pair.send(bytesOf(10));
    pair.a.leave(pair.now + 200ms);
    pair.a.tick(pair.now + 200ms);
    EXPECT_EQ(pair.a.state(), ended);
}

TEST(SessionTest, AHuntThatPassedThisNodeIsRefusedAsALoop) {
    Pair pair;
    pair.settle();
    ASSERT_TRUE(pair.a.seek({"toC/X", {settingsOf(3).node, settingsOf(2).node}}));
    pair.settle();
    EXPECT_THAT(take<Sought>(pair.b), SizeIs(0));
    EXPECT_EQ(pair.b.counts().loops, 1u);
    pair.settle();
    const auto refused = take<WasRefused>(pair.a);
    ASSERT_THAT(refused, SizeIs(1));
    EXPECT_EQ(refused[0].refusal.reason, Refused::loop);
    EXPECT_EQ(refused[0].refusal.name, "toC/X");
}

TEST(SessionTest, ABoundedNumberOfNamesIsSoughtAndOfEndpointsAnnounced) {
    Pair pair;
    pair.settle();
    for (size_t i = 0; i < mostSeeks; ++i) ASSERT_TRUE(pair.a.seek({"s" + std::to_string(i), {}}));
    EXPECT_FALSE(pair.a.seek({"one more", {}}));
    std::vector<OwnId> ids;
    for (size_t i = 0; i < mostEndpoints; ++i) ids.push_back(*pair.a.announce("e" + std::to_string(i)));
    EXPECT_FALSE(pair.a.announce("one more"));
    pair.a.ended(ids[0]);
    EXPECT_FALSE(pair.a.announce("one more")) << "the far side does not know of the end yet";
    for (int turns = 0; turns < 3; ++turns) {
        pair.settle();
        take<Sought>(pair.b);
        pair.now += 20ms;
    }
    EXPECT_TRUE(pair.a.announce("one more"));
    pair.settle();
    EXPECT_EQ(pair.b.state(), up);
}

TEST(SessionTest, LiesEndIt) {
    EXPECT_EQ(Liar().says(Type::hello, 0, {}), ended);
    EXPECT_EQ(Liar().says(Type::ready, 0, {}), ended);
    EXPECT_EQ(Liar().says(Type::ping, 0, {1, 2, 3}), ended);
    EXPECT_EQ(Liar().says(Type::acknowledgement, 0, {0xFF, 0, 0, 0, 0, 0, 0, 0}), ended) << "of what was never sent";
    EXPECT_EQ(Liar().says(Type::credit, 1, {0, 0, 0, 0, 0xFF, 0, 0, 0}), ended) << "more than there can be";
    EXPECT_EQ(Liar().says(Type::credit, 1, {0, 0, 0, 0, 0, 0, 0, 0}), ended) << "less than before";
    EXPECT_EQ(Liar().says(Type::credit, 9, {0, 0, 0, 0, 0, 1, 0, 0}), ended) << "for nobody";
    EXPECT_EQ(Liar().says(Type::end, 9, {}), ended) << "of nobody";
    EXPECT_EQ(Liar().says(Type::announcement, 9, {0, 4, 0, 0, 1, 'x'}), ended) << "out of turn";
    EXPECT_EQ(Liar().says(Type::announcement, 2, {0, 4, 0, 0, 6, 's', 'e', 'r', 'v', 'e', 'r'}), ended) << "twice";
}

TEST(SessionTest, LiesInSignalsEndIt) {
    EXPECT_EQ(Liar().says(Type::signals, 1, signal(1, 4, 4)), up) << "no lie";
    EXPECT_EQ(Liar().says(Type::signals, 1, signal(1, 5, 4)), ended) << "longer than its frame";
    EXPECT_EQ(Liar().says(Type::signals, 1, signal(1, UINT32_MAX, 4)), ended);
    EXPECT_EQ(Liar().says(Type::signals, 1, signal(2, 4, 4)), ended) << "from nobody";
    EXPECT_EQ(Liar().says(Type::signals, 0, signal(1, 4, 4)), ended) << "for nobody";
    EXPECT_EQ(Liar().says(Type::signals, 2, signal(1, 4, 4)), ended) << "for nobody yet";
    EXPECT_EQ(Liar().says(Type::signals, 1, {0, 0, 0}), ended);
}

TEST(SessionTest, LiesInFragmentsEndIt) {
    EXPECT_EQ(Liar().says(Type::fragment, 1, signal(1, 50000, 1000), flagFirst), up) << "no lie";
    EXPECT_EQ(Liar().says(Type::fragment, 1, signal(1, 50000, 1000)), ended) << "without a first";
    EXPECT_EQ(Liar().says(Type::fragment, 1, signal(1, 100, 100), flagFirst), ended) << "small enough for one frame";
    EXPECT_EQ(Liar().says(Type::fragment, 1, signal(1, mostSignal, 1000), flagFirst), ended) << "too large";
    EXPECT_EQ(Liar().says(Type::fragment, 1, signal(1, 50000, 0), flagFirst), ended) << "without progress";
    Liar tooMuch;
    ASSERT_EQ(tooMuch.says(Type::fragment, 1, signal(1, 17000, 16000), flagFirst), up);
    EXPECT_EQ(tooMuch.says(Type::fragment, 1, Bytes(1001)), ended) << "more than was said";
    Liar between;
    ASSERT_EQ(between.says(Type::fragment, 1, signal(1, 50000, 1000), flagFirst), up);
    EXPECT_EQ(between.says(Type::signals, 1, signal(1, 4, 4)), ended) << "amid a large one";
}

TEST(SessionTest, MoreThanTheCreditEndsIt) {
    Liar liar;
    int sent = 0;
    while (liar.says(Type::signals, 1, signal(1, 16000, 16000)) == up) {
        take<Arrived>(liar.a);
        liar.now += 20ms;
        liar.framesOf(liar.a);
        ++sent;
    }
    EXPECT_EQ(sent, int(usualCredit / 16064));
}

TEST(SessionTest, MoreThanTheWindowEndsIt) {
    Liar liar;
    size_t bytes = 0;
    while (liar.says(Type::seek, 0, {0, 1, 'x'}) == up) bytes += headerBytes + 3;
    EXPECT_LE(bytes, settingsOf(1).window);
    EXPECT_LE(bytes, mostSeeks * (headerBytes + 3)) << "so many hunts are no hunts";
}
