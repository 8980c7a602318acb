#include "link/session/greeting.h"

#include "tests/link/pair.h"

namespace {

using namespace linktest;
using testing::ElementsAre;

Bytes helloFrame(const Hello& hello) {
    Bytes frame = openFrame();
    write(Writer(frame), hello);
    closeFrame(frame, Header());
    return frame;
}

Hello helloOf(uint8_t node, uint64_t nonce) {
    Hello hello;
    hello.node[0] = node;
    hello.nonce = nonce;
    hello.window = leastWindow;
    hello.tolerance = 1500;
    return hello;
}

}  // namespace

TEST(GreetingTest, BothSidesComeUpAndTellWhomTheyMet) {
    Settings big = settingsOf(2);
    big.byteOrder = ByteOrder::bigEndian;
    big.wordBytes = 4;
    Pair pair(settingsOf(1), big);
    pair.settle();
    EXPECT_EQ(pair.a.state(), Session::State::up);
    EXPECT_EQ(pair.b.state(), Session::State::up);
    const auto up = take<Up>(pair.a);
    ASSERT_EQ(up.size(), 1u);
    EXPECT_EQ(up[0].peer.node, big.node);
    EXPECT_EQ(up[0].peer.byteOrder, ByteOrder::bigEndian);
    EXPECT_EQ(up[0].peer.wordBytes, 4);
}

TEST(GreetingTest, EachDirectionHasATagOfItsOwnWhichIsNever0) {
    EXPECT_NE(tagOf(1, 2), tagOf(2, 1));
    EXPECT_NE(tagOf(1, 2), 0u);
    Pair pair;
    pair.settle();
    EXPECT_EQ(pair.a.terms()->tagOut, pair.b.terms()->tagIn);
    EXPECT_EQ(pair.a.terms()->tagIn, pair.b.terms()->tagOut);
}

TEST(GreetingTest, TheGreetingHasNoTagAndTheFirstFrameAfterItHasNumber1) {
    Pair pair;
    const std::vector<Bytes> hello = pair.framesOf(pair.a);
    ASSERT_EQ(hello.size(), 1u);
    const auto first = readFrame(hello[0].data(), hello[0].size());
    EXPECT_EQ(first->header.tag, 0u);
    EXPECT_EQ(first->header.type, Type::hello);
    pair.give(pair.framesOf(pair.b), pair.a);
    const std::vector<Bytes> ready = pair.framesOf(pair.a);
    ASSERT_EQ(ready.size(), 1u);
    const auto second = readFrame(ready[0].data(), ready[0].size());
    EXPECT_EQ(second->header.type, Type::ready);
    EXPECT_EQ(second->header.tag, pair.a.terms()->tagOut);
    EXPECT_EQ(second->header.sequence, 1u);
}

TEST(GreetingTest, TheHighestVersionThatBothKnowIsSpoken) {
    Settings older = settingsOf(1);
    older.highestVersion = 2;
    older.features = 0b0110;
    Settings newer = settingsOf(2);
    newer.lowestVersion = 2;
    newer.highestVersion = 5;
    newer.features = 0b1100;
    Pair pair(older, newer);
    pair.settle();
    EXPECT_EQ(pair.a.terms()->version, 2);
    EXPECT_EQ(pair.b.terms()->version, 2);
    EXPECT_EQ(pair.a.terms()->features, 0b0100u);
}

TEST(GreetingTest, WithoutAVersionInCommonBothSidesAreTold) {
    Settings newer = settingsOf(2);
    newer.lowestVersion = newer.highestVersion = 9;
    Pair pair(settingsOf(1), newer);
    const std::vector<Bytes> hello = pair.framesOf(pair.a);
    pair.framesOf(pair.b);  // its greeting is lost
    pair.give(hello, pair.b);
    EXPECT_EQ(pair.b.state(), Session::State::ended);
    const std::vector<Bytes> refusal = pair.framesOf(pair.b);
    ASSERT_EQ(refusal.size(), 1u);
    EXPECT_EQ(refusal[0].back(), static_cast<uint8_t>(End::version));
    pair.give(refusal, pair.a);
    EXPECT_EQ(pair.a.state(), Session::State::ended);
}

TEST(GreetingTest, ANodeDoesNotTalkToItself) {
    Pair pair(settingsOf(1), settingsOf(1));
    pair.settle();
    EXPECT_EQ(pair.a.state(), Session::State::ended);
}

TEST(GreetingTest, AGreetingOfAnEarlierConnectionBringsNoSessionUp) {
    Pair pair;
    pair.give({helloFrame(helloOf(2, 4711))}, pair.a);
    EXPECT_EQ(pair.a.state(), Session::State::greeting);
    pair.give(pair.framesOf(pair.a), pair.b);  // whose greeting is on its way, but not there yet
    EXPECT_EQ(pair.b.state(), Session::State::greeting);
    pair.settle();
    EXPECT_EQ(pair.a.state(), Session::State::up) << "the later greeting counts";
    EXPECT_EQ(pair.b.state(), Session::State::up);
}

TEST(GreetingTest, AGreetingThatComesAfterwardsChangesNothing) {
    Pair pair;
    pair.settle();
    const uint64_t tag = pair.a.terms()->tagIn;
    pair.give({helloFrame(helloOf(2, 4711))}, pair.a);
    EXPECT_EQ(pair.a.state(), Session::State::up);
    EXPECT_EQ(pair.a.terms()->tagIn, tag);
    EXPECT_EQ(pair.a.counts().foreignTags, 1u);
}

TEST(GreetingTest, APeerThatSaysNothingMoreThanHelloIsGivenUp) {
    Pair pair;
    pair.give(pair.framesOf(pair.b), pair.a);
    pair.a.tick(2s - 1us);
    EXPECT_EQ(pair.a.state(), Session::State::greeting);
    EXPECT_EQ(pair.a.deadline(), Time(2s));
    pair.a.tick(2s);
    EXPECT_EQ(pair.a.state(), Session::State::ended);
    EXPECT_EQ(pair.a.event(), nullptr) << "nobody was told of it as up";
}

TEST(GreetingTest, TheSmallerOfTheTwoLargestSignalsHolds) {
    Settings small = settingsOf(2);
    small.largestSignal = 1000;
    Pair pair(settingsOf(1), small);
    pair.introduce();
    EXPECT_EQ(pair.send(bytesOf(997)), Sent::tooLarge);
    EXPECT_EQ(pair.send(bytesOf(996)), Sent::taken);
}
